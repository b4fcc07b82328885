// What the answering programs of the benchmark share: one client without a loop of its own, one answer a request.
#pragma once

#include <mosquitto.h>
#include <mqtt_protocol.h>

#include <cstdint>
#include <cstdlib>

namespace bench {

// Publishes the text where the request's properties say, with its correlation data.
inline void Reply(mosquitto* client, const mosquitto_property* properties, const void* text, int size) {
  char* topic = nullptr;
  void* tag = nullptr;
  uint16_t tag_size = 0;
  mosquitto_property_read_string(properties, MQTT_PROP_RESPONSE_TOPIC, &topic, false);
  mosquitto_property_read_binary(properties, MQTT_PROP_CORRELATION_DATA, &tag, &tag_size, false);
  mosquitto_property* answer = nullptr;
  mosquitto_property_add_binary(&answer, MQTT_PROP_CORRELATION_DATA, tag, tag_size);
  if (topic != nullptr) mosquitto_publish_v5(client, nullptr, topic, size, text, 0, false, answer);
  mosquitto_property_free_all(&answer);
  free(topic);
  free(tag);
}

using Answer = void (*)(mosquitto*, void*, const mosquitto_message*, const mosquitto_property*);

// Answers what is published on the topic until the broker goes. Returns the program's status.
inline int Serve(int port, const char* topic, Answer answer) {
  mosquitto_lib_init();
  mosquitto* const client = mosquitto_new(nullptr, true, nullptr);
  mosquitto_int_option(client, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
  mosquitto_int_option(client, MOSQ_OPT_TCP_NODELAY, 1);
  mosquitto_message_v5_callback_set(client, answer);
  if (mosquitto_connect(client, "127.0.0.1", port, 60) != MOSQ_ERR_SUCCESS) return 1;
  mosquitto_subscribe(client, nullptr, topic, 0);
  return mosquitto_loop_forever(client, -1, 1);
}

}  // namespace bench
