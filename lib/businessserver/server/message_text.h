// The texts of a bus message, bounded by the record's own sizes.
#pragma once

#include <cstring>
#include <string_view>

#include "dp_client.h"

namespace businessserver {

// The type name up to its NUL, or the whole field where there is none.
inline std::string_view TypeName(const _TagDpMsg* msg) {
  return {msg->type_name, strnlen(msg->type_name, sizeof msg->type_name)};
}

// All bytes of the payload.
inline std::string_view Payload(const _TagDpMsg* msg) { return {DpMsgData(msg), msg->data_size}; }

// The payload as text: up to its first NUL.
inline std::string_view PayloadText(const _TagDpMsg* msg) {
  return {DpMsgData(msg), strnlen(DpMsgData(msg), msg->data_size)};
}

}  // namespace businessserver
