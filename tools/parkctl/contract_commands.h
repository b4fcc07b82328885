// "parkctl schema" and "parkctl explain": what may be said to a device, without a device.
#pragma once

#include <string>

namespace parkctl {

// name as contract::Find takes it. Both throw UserError for one that is none.
int PrintSchema(const std::string& name);
int ExplainSchema(const std::string& name);

}  // namespace parkctl
