// The floor: answers each request with its own payload, in as few library calls as an answer takes.
#include <cstdio>
#include <cstdlib>

#include "responder.h"

namespace {

void Echo(mosquitto* client, void*, const mosquitto_message* request, const mosquitto_property* properties) {
  bench::Reply(client, properties, request->payload, request->payloadlen);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    fprintf(stderr, "usage: bench_echo PORT TOPIC\n");
    return 2;
  }
  return bench::Serve(atoi(argv[1]), argv[2], Echo);
}
