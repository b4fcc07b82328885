// The settings of the result encryption: read, kept, and without effect on what leaves.
#include <algorithm>

#include "base64.h"
#include "server/business_server.h"

namespace businessserver {

namespace {

constexpr int kKeyBase64Flag = 43;
constexpr uint32_t kMaxKeyLength = 16;

}  // namespace

void BusinessServer::InitEncCfg() {
  BS_GUARDED([this] {
    Json::Value document;
    GetKeyValueAndReplyBuf(kEncCfg, document);
    encryption_.level = document[kLevel].asUInt();
    encryption_.key_length = std::min(document[kDataLen].asUInt(), kMaxKeyLength);
    encryption_.key_text = document[kData].asString();
    // Decoded and discarded: the text, level and length are settings to be read back, no more.
    lxbase::Base64::DecodeFromArray(encryption_.key_text.data(), encryption_.key_text.size(), kKeyBase64Flag, nullptr);
  });
}

// Kept as the hook that it is: results leave in the clear at every level.
void BusinessServer::EncryDataCtrl(LX_Parking_Result_Param_Bus*) const {}

}  // namespace businessserver
