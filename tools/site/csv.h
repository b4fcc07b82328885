// What integrators have: a spreadsheet with a row for each device, saved as comma-separated values.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "site/plan.h"

namespace site {

// Columns device, name, zone, left, right, front, group by the first row, in any order; device and zone must be there.
// Separated by comma, semicolon or tab, quoted as spreadsheets do it. A cell with several zones has blanks, commas,
// semicolons or | between them. Mistakes name the row's device, or its line.
Site ImportCsv(std::string_view text, const std::string& site_name, std::vector<Mistake>& mistakes);

}  // namespace site
