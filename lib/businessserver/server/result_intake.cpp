// Recognition results: the check, the fan-out, and the copy that is republished.
#include <algorithm>
#include <cstring>
#include <string_view>

#include "server/business_server.h"
#include "server/message_text.h"

namespace businessserver {

namespace {

// Kept: a repeat is told by a differing occupation-line value. The recognition process moves that value with every
// re-trigger of the same event; an equal one is a new event.
bool RepeatsLastSent(const LX_ParkingResult& result, const LX_ParkingResult& last) {
  return result.trigger == kTriggerRepeatable && FieldText(result.plate) == FieldText(last.plate) &&
         result.valid == last.valid && result.occupy_line != last.occupy_line &&
         result.space_status == last.space_status;
}

void UpdateLastSent(LX_ParkingResult& result, LX_ParkingResult& last) {
  last.valid = result.valid;
  last.second_flag = result.second_flag;
  last.occupy_line = result.occupy_line;
  last.space_status = result.space_status;
  last.trigger = result.trigger;
  CopyFieldText(last.space_name, result.space_name);
  if (result.second_flag != 0 || result.trigger != kTriggerRepeatable) {
    CopyFieldText(last.extra_text, result.extra_text);
  }
  if (result.valid == 0) {
    memcpy(last.plate, kNoPlate, sizeof kNoPlate);
    return;
  }
  // A space that became free keeps reporting the plate that it last held.
  if (result.space_status == 0 && result.second_flag != 0) CopyFieldText(result.plate, last.plate);
  memcpy(&last, &result, kResultHeadBytes);
  last.head_confidence = result.head_confidence;
}

}  // namespace

void BusinessServer::OnIvsResult(const _TagDpMsg* msg) {
  BS_LOG(kInfo) << "BusinessServer Message : " << TypeName(msg);
  if (msg->data_size != sizeof(LX_Parking_Result_Param)) {
    BS_LOG(kError) << "dmp->data_size != " << msg->data_size;
    BS_LOG(kError) << "sizeof(LX_Parking_Result_Param) != " << sizeof(LX_Parking_Result_Param);
    return;
  }
  // Used where it lies: the republication may write a plate back into it.
  auto* const result = reinterpret_cast<LX_Parking_Result_Param*>(const_cast<char*>(DpMsgData(msg)));
  PlateResultLedControl(result);
  UpdateNetPushStatus(result);
  SendDevRs485ProData(result);

  const std::string_view type(msg->type_name, std::min<size_t>(msg->type_name_len, sizeof msg->type_name));
  if (type != kAvsParkRectChange) {
    watchdog_.result_silence = 1;
    SendBusPlateResultMsg(result);
  }
}

void BusinessServer::SendBusPlateResultMsg(LX_Parking_Result_Param* result) {
  if (result == nullptr) return;
  for (size_t i = 0; i < kSpaces; ++i) {
    if (RepeatsLastSent(result->spaces[i], last_sent_.spaces[i])) return;
  }
  for (size_t i = 0; i < kSpaces; ++i) UpdateLastSent(result->spaces[i], last_sent_.spaces[i]);
  CopyFieldText(last_sent_.extra_text, result->extra_text);
  DpClient_SendDpMessage(kBusSimulatorTrigger, 0, &last_sent_, sizeof last_sent_);
}

}  // namespace businessserver
