// "parkctl store ...": the device's stored documents.
#pragma once

#include <cstdint>
#include <string>

namespace parkctl {

int ListDocuments(uint16_t store_port);
int GetDocument(uint16_t store_port, const std::string& name);

// Shows what changes and, unless only_show, stores the document.
int SetDocument(uint16_t store_port, const std::string& name, const std::string& source, bool only_show);

int BackUpStore(uint16_t store_port);
int RestoreStore(uint16_t store_port);

}  // namespace parkctl
