// Messages as the broker hands them over: topic, response topic, correlation data and payload, each a length byte and
// its bytes. The record has what the message had, and an answer goes where it was asked for, if it may be.
#include <mqtt_protocol.h>

#include <cstring>
#include <string>

#include "bus_messages.h"
#include "target.h"

FUZZ_TARGET(input) {
  uint32_t id = 0;
  platform::RecordBuffer buffer;
  const auto next = [&input] {
    const std::string field(input.substr(1, static_cast<uint8_t>(input[0])));
    input.remove_prefix(1 + field.size());
    if (input.empty()) input = std::string_view("", 1);  // beyond the input all fields are empty
    return field;
  };
  while (input.size() > 1) {
    std::string topic = next(), answer_to = next(), correlation = next(), payload = next();
    mosquitto_property* properties = nullptr;
    const bool named = mosquitto_property_add_string(&properties, MQTT_PROP_RESPONSE_TOPIC, answer_to.c_str()) == 0;
    mosquitto_property_add_binary(&properties, MQTT_PROP_CORRELATION_DATA, correlation.data(),
                                  static_cast<uint16_t>(correlation.size()));
    const mosquitto_message message = {0, topic.data(), payload.data(), static_cast<int>(payload.size()), 0, false};
    const auto answer = platform::ReplyAddressOf(message, properties);
    mosquitto_property_free_all(&properties);

    const _TagDpMsg* const record = platform::FillRecord(message, ++id, &buffer);
    MUST_HOLD(record->message_id == id && record->type_name_len == strlen(record->type_name));
    MUST_HOLD(strncmp(record->type_name, topic.c_str(), sizeof record->type_name - 1) == 0);
    MUST_HOLD(std::string(DpMsgData(record), record->data_size + 1) == payload + '\0');

    const std::string own = std::string(topic.c_str()) + "/reply";
    const std::string asked = named ? answer_to.c_str() : "";
    MUST_HOLD(answer.has_value() ==
              (asked.empty() || asked == own || (asked.rfind("reply/", 0) == 0 && asked.size() > 6)));
    if (!answer) continue;
    MUST_HOLD(answer->topic == (asked.empty() ? own : asked));
    MUST_HOLD(asked.empty() || answer->correlation == correlation);
  }
}
