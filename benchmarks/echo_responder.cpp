// The floor: answers each request with its own payload, in as few library calls as an answer takes.
#include <mosquitto.h>
#include <mqtt_protocol.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace {

void Answer(mosquitto* client, void*, const mosquitto_message* request, const mosquitto_property* properties) {
  char* topic = nullptr;
  void* tag = nullptr;
  uint16_t tag_size = 0;
  mosquitto_property_read_string(properties, MQTT_PROP_RESPONSE_TOPIC, &topic, false);
  mosquitto_property_read_binary(properties, MQTT_PROP_CORRELATION_DATA, &tag, &tag_size, false);
  mosquitto_property* answer = nullptr;
  mosquitto_property_add_binary(&answer, MQTT_PROP_CORRELATION_DATA, tag, tag_size);
  if (topic != nullptr) {
    mosquitto_publish_v5(client, nullptr, topic, request->payloadlen, request->payload, 0, false, answer);
  }
  mosquitto_property_free_all(&answer);
  free(topic);
  free(tag);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    fprintf(stderr, "usage: bench_echo PORT TOPIC\n");
    return 2;
  }
  mosquitto_lib_init();
  mosquitto* const client = mosquitto_new(nullptr, true, nullptr);
  mosquitto_int_option(client, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
  mosquitto_int_option(client, MOSQ_OPT_TCP_NODELAY, 1);
  mosquitto_message_v5_callback_set(client, Answer);
  if (mosquitto_connect(client, "127.0.0.1", atoi(argv[1]), 60) != MOSQ_ERR_SUCCESS) return 1;
  mosquitto_subscribe(client, nullptr, argv[2], 0);
  return mosquitto_loop_forever(client, -1, 1);
}
