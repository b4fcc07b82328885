// The floor of everything that a message sets off: counts messages in one word of a file, where the publisher sees it
// at once, as it sees the daemon's register stores.
#include <fcntl.h>
#include <mosquitto.h>
#include <mqtt_protocol.h>
#include <sys/mman.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace {

void Count(mosquitto*, void* word, const mosquitto_message*, const mosquitto_property*) {
  auto* const counter = static_cast<volatile uint32_t*>(word);
  *counter = *counter + 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    fprintf(stderr, "usage: bench_subscriber PORT TOPIC FILE\n");
    return 2;
  }
  const int file = open(argv[3], O_RDWR | O_CLOEXEC);
  void* const word = mmap(nullptr, sizeof(uint32_t), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  if (word == MAP_FAILED) return 1;
  mosquitto_lib_init();
  mosquitto* const client = mosquitto_new(nullptr, true, word);
  mosquitto_int_option(client, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
  mosquitto_message_v5_callback_set(client, Count);
  if (mosquitto_connect(client, "127.0.0.1", atoi(argv[1]), 60) != MOSQ_ERR_SUCCESS) return 1;
  mosquitto_subscribe(client, nullptr, argv[2], 0);
  return mosquitto_loop_forever(client, -1, 1);
}
