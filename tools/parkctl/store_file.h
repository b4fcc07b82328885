// The whole store in one file, byte for byte, so that it outlives the medium that holds the store.
//
//   {"store_version": 1, "model": "parking-camera", "made": "2026-11-23T21:31:00Z", "device": "L2-B-014",
//    "documents": [{"key": "bus_dev_pos_value\u0000", "value": "{\"pos\": 1}"}, {"key": "...", "base64": "..."}],
//    "sha256": "9f86d0..."}
//
// "device" is its name in its site, missing where it belongs to none. A key or value that is UTF-8 stands as it is, one
// that is not in base64 ("key_base64", "base64"). The checksum is that of all keys and values, each with its length in
// bytes and a colon before it. The form is parkctl's own.
#pragma once

#include <string>
#include <string_view>

#include "kvdb_whole.h"

namespace parkctl {

constexpr int kStoreFileVersion = 1;
constexpr char kStoreFileModel[] = "parking-camera";
constexpr size_t kLongestKey = 65535;
constexpr size_t kLongestValue = 1024 * 1024;  // the store takes no longer one

struct StoreFile {
  std::string made;    // UTC
  std::string device;  // empty: it has no name
  KvdbDocuments documents;
};

std::string StoreFileText(const StoreFile& file);

// What is wrong with a text, as a sentence that begins with "the file"; empty for one that is good in every part.
std::string ReadStoreFile(std::string_view text, StoreFile& file);

// The name by which a store calls its device: that of its relay's document. Empty: none.
std::string DeviceNameIn(const KvdbDocuments& documents);

}  // namespace parkctl
