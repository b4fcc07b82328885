// What a reading command costs when nothing else is done: parses the request, asks the store once, parses what is
// stored and answers in styled text. No log, no other commands, no handling of failures.
#include <hiredis/hiredis.h>
#include <json/reader.h>
#include <json/value.h>
#include <json/writer.h>
#include <mosquitto.h>
#include <mqtt_protocol.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <sstream>
#include <string>

namespace {

constexpr char kKey[] = "device_ttyio_value";  // its NUL counts

redisContext* store;

void Parse(const char* text, size_t size, Json::Value& document) {
  static const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
  reader->parse(text, text + size, &document, nullptr);
}

std::string Styled(const Json::Value& document) {
  static const std::unique_ptr<Json::StreamWriter> writer(Json::StreamWriterBuilder().newStreamWriter());
  std::ostringstream text;
  writer->write(document, &text);
  text << '\n';
  return text.str();
}

std::string AnswerText(const mosquitto_message* message) {
  Json::Value request;
  Parse(static_cast<const char*>(message->payload), static_cast<size_t>(message->payloadlen), request);
  Json::Value reply;
  reply["state"] = 200;
  reply["error_msg"] = "All done";
  reply["type"] = request["type"];
  auto* const found = static_cast<redisReply*>(redisCommand(store, "HGET kvdb %b", kKey, sizeof kKey));
  if (found != nullptr && found->type == REDIS_REPLY_STRING) Parse(found->str, found->len, reply["body"]);
  freeReplyObject(found);
  return Styled(reply);
}

void Answer(mosquitto* client, void*, const mosquitto_message* message, const mosquitto_property* properties) {
  const std::string text = AnswerText(message);
  char* topic = nullptr;
  void* tag = nullptr;
  uint16_t tag_size = 0;
  mosquitto_property_read_string(properties, MQTT_PROP_RESPONSE_TOPIC, &topic, false);
  mosquitto_property_read_binary(properties, MQTT_PROP_CORRELATION_DATA, &tag, &tag_size, false);
  mosquitto_property* answer = nullptr;
  mosquitto_property_add_binary(&answer, MQTT_PROP_CORRELATION_DATA, tag, tag_size);
  if (topic != nullptr) {
    mosquitto_publish_v5(client, nullptr, topic, static_cast<int>(text.size()), text.data(), 0, false, answer);
  }
  mosquitto_property_free_all(&answer);
  free(topic);
  free(tag);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    fprintf(stderr, "usage: bench_lean BUS_PORT STORE_PORT TOPIC\n");
    return 2;
  }
  store = redisConnect("127.0.0.1", atoi(argv[2]));
  if (store == nullptr || store->err != 0) return 1;
  mosquitto_lib_init();
  mosquitto* const client = mosquitto_new(nullptr, true, nullptr);
  mosquitto_int_option(client, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
  mosquitto_int_option(client, MOSQ_OPT_TCP_NODELAY, 1);
  mosquitto_message_v5_callback_set(client, Answer);
  if (mosquitto_connect(client, "127.0.0.1", atoi(argv[1]), 60) != MOSQ_ERR_SUCCESS) return 1;
  mosquitto_subscribe(client, nullptr, argv[3], 0);
  return mosquitto_loop_forever(client, -1, 1);
}
