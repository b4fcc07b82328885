// The floor of two relays: what arrives on a topic of one broker goes to a topic of another, unread.
//   bench_forwarder HOST PORT TOPIC HOST PORT TOPIC [--threads]
// By itself it serves both from one loop with the library's fewest calls, as the relay does; with --threads the library
// serves each from a thread of its own, as it offers it.
#include <mosquitto.h>
#include <poll.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace {

struct Side {
  const char* host;
  int port;
  const char* topic;
  mosquitto* client;
};
Side from, to;

void Forward(mosquitto*, void*, const mosquitto_message* message, const mosquitto_property*) {
  mosquitto_publish(to.client, nullptr, to.topic, message->payloadlen, message->payload, 0, false);
}

// A broker that is being started is waited for.
bool Connect(Side* side, char** arguments) {
  *side = {arguments[0], atoi(arguments[1]), arguments[2], mosquitto_new(nullptr, true, nullptr)};
  mosquitto_int_option(side->client, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
  mosquitto_int_option(side->client, MOSQ_OPT_TCP_NODELAY, 1);
  for (int attempt = 0; attempt < 100; ++attempt) {
    if (mosquitto_connect(side->client, side->host, side->port, 60) == MOSQ_ERR_SUCCESS) return true;
    const timespec pause = {0, 50'000'000};
    nanosleep(&pause, nullptr);
  }
  return false;
}

bool Serve(mosquitto* client, short events) {
  if ((events & (POLLIN | POLLHUP | POLLERR)) != 0 && mosquitto_loop_read(client, 1) != MOSQ_ERR_SUCCESS) return false;
  return !mosquitto_want_write(client) || mosquitto_loop_write(client, 1) == MOSQ_ERR_SUCCESS;
}

int ServeByThreads() {
  const bool served = mosquitto_loop_start(to.client) == MOSQ_ERR_SUCCESS;
  return served ? mosquitto_loop_forever(from.client, -1, 1) : 1;
}

int ServeBoth() {
  pollfd ready[] = {{mosquitto_socket(from.client), POLLIN, 0}, {mosquitto_socket(to.client), POLLIN, 0}};
  for (time_t tick = 0;;) {
    poll(ready, 2, 1000);
    if (!Serve(from.client, ready[0].revents) || !Serve(to.client, ready[1].revents)) return 1;
    if (time(nullptr) == tick) continue;
    tick = time(nullptr);
    if (mosquitto_loop_misc(from.client) != MOSQ_ERR_SUCCESS || mosquitto_loop_misc(to.client) != MOSQ_ERR_SUCCESS) {
      return 1;
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  const bool threads = argc == 8 && strcmp(argv[7], "--threads") == 0;
  if (argc != 7 && !threads) {
    fprintf(stderr, "usage: bench_forwarder HOST PORT TOPIC HOST PORT TOPIC [--threads]\n");
    return 2;
  }
  mosquitto_lib_init();
  if (!Connect(&from, argv + 1) || !Connect(&to, argv + 4)) return 1;
  mosquitto_message_v5_callback_set(from.client, Forward);
  mosquitto_subscribe(from.client, nullptr, from.topic, 0);
  return threads ? ServeByThreads() : ServeBoth();
}
