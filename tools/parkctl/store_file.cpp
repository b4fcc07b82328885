#include "store_file.h"

#include <json/value.h>
#include <sodium.h>

#include <algorithm>

#include "base64.h"
#include "contract/json_text.h"
#include "plain_words.h"
#include "protocol/json_text.h"
#include "protocol/stored_documents.h"

namespace parkctl {

namespace bs = businessserver;

namespace {

constexpr char kVersion[] = "store_version";
constexpr char kModel[] = "model";
constexpr char kMade[] = "made";
constexpr char kDevice[] = "device";
constexpr char kDocuments[] = "documents";
constexpr char kChecksum[] = "sha256";
constexpr int kBase64Flag = 21;

// How a key or a value stands in the file.
struct Names {
  const char* text;
  const char* base64;
};
constexpr Names kKey = {"key", "key_base64"};
constexpr Names kValue = {"value", "base64"};

std::string Checksum(const KvdbDocuments& documents) {
  crypto_hash_sha256_state state;
  crypto_hash_sha256_init(&state);
  const auto add = [&state](const std::string& bytes) {
    const std::string counted = std::to_string(bytes.size()) + ":" + bytes;
    crypto_hash_sha256_update(&state, reinterpret_cast<const unsigned char*>(counted.data()), counted.size());
  };
  for (const auto& [key, value] : documents) {
    add(key);
    add(value);
  }
  unsigned char sum[crypto_hash_sha256_BYTES];
  crypto_hash_sha256_final(&state, sum);
  char text[2 * sizeof sum + 1];
  return sodium_bin2hex(text, sizeof text, sum, sizeof sum);
}

void Put(const std::string& bytes, const Names& names, Json::Value& entry) {
  if (contract::IsUtf8(bytes)) {
    entry[names.text] = bytes;
  } else {
    entry[names.base64] = lxbase::Base64::EncodeFromArray(bytes.data(), bytes.size());
  }
}

bool Take(const Json::Value& entry, const Names& names, std::string& bytes) {
  if (entry[names.text].isString()) {
    bytes = entry[names.text].asString();
    return true;
  }
  if (!entry[names.base64].isString()) return false;
  const std::string text = entry[names.base64].asString();
  int size = 0;
  bytes = lxbase::Base64::DecodeFromArray(text.data(), text.size(), kBase64Flag, &size);
  return size >= 0;
}

std::string TakeDocuments(const Json::Value& list, KvdbDocuments& documents) {
  if (!list.isArray() || list.empty()) return "the file holds no documents";
  for (Json::ArrayIndex i = 0; i < list.size(); ++i) {
    std::string key, value;
    const std::string place = "the file's document " + std::to_string(i + 1);
    if (!list[i].isObject() || !Take(list[i], kKey, key) || !Take(list[i], kValue, value)) {
      return place + " has no key or no value";
    }
    if (key.empty() || key.size() > kLongestKey) return place + " has a key that the store does not take";
    if (value.size() > kLongestValue) return place + " is longer than 1 MiB, which the store does not take";
    if (!documents.empty() && documents.back().first >= key) return place + " is there twice, or out of its order";
    documents.emplace_back(std::move(key), std::move(value));
  }
  return "";
}

}  // namespace

std::string StoreFileText(const StoreFile& file) {
  Json::Value whole;
  whole[kVersion] = kStoreFileVersion;
  whole[kModel] = kStoreFileModel;
  whole[kMade] = file.made;
  if (!file.device.empty()) whole[kDevice] = file.device;
  Json::Value& list = whole[kDocuments] = Json::Value(Json::arrayValue);
  for (const auto& [key, value] : file.documents) {
    Json::Value entry;
    Put(key, kKey, entry);
    Put(value, kValue, entry);
    list.append(std::move(entry));
  }
  whole[kChecksum] = Checksum(file.documents);
  return bs::StyledText(whole);
}

std::string ReadStoreFile(std::string_view text, StoreFile& file) {
  Json::Value whole;
  std::string problem;
  if (!contract::ParseStrictly(text, contract::Comments::kRefused, whole, problem)) return "the file " + problem;
  if (!whole.isObject() || !whole[kVersion].isInt() || whole[kVersion].asInt() < 1) {
    return "the file is no export of a store: it has no \"store_version\"";
  }
  if (whole[kVersion].asInt() > kStoreFileVersion) {
    return "the file is of version " + std::to_string(whole[kVersion].asInt()) +
           ", newer than this parkctl, which reads up to " + std::to_string(kStoreFileVersion);
  }
  if (whole[kModel] != Json::Value(kStoreFileModel)) {
    const std::string model = whole[kModel].isString() ? words::Printable(whole[kModel].asString()) : "unknown";
    return "the file is of another model, \"" + model + "\": this is a \"" + kStoreFileModel + '"';
  }
  file.made = whole[kMade].isString() ? words::Printable(whole[kMade].asString()) : "";
  file.device = whole[kDevice].isString() ? whole[kDevice].asString() : "";
  problem = TakeDocuments(whole[kDocuments], file.documents);
  if (!problem.empty()) return problem;
  if (whole[kChecksum] != Json::Value(Checksum(file.documents))) {
    return "the file was damaged or changed: its checksum is not that of its documents";
  }
  return "";
}

std::string DeviceNameIn(const KvdbDocuments& documents) {
  const std::string key(bs::kSiteMembership.key, bs::kSiteMembership.key_length);
  const auto found =
      std::find_if(documents.begin(), documents.end(), [&](const auto& one) { return one.first == key; });
  Json::Value membership;
  if (found == documents.end() || !bs::ParseJson(found->second, membership) || !membership.isObject()) return "";
  return membership[kDevice].isString() ? membership[kDevice].asString() : "";
}

}  // namespace parkctl
