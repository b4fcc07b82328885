// What a reading command costs when nothing else is done: parses the request, asks the store once, parses what is
// stored and answers in styled text. No log, no other commands, no handling of failures.
#include <hiredis/hiredis.h>
#include <json/reader.h>
#include <json/value.h>
#include <json/writer.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <sstream>
#include <string>

#include "responder.h"

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
  bench::Reply(client, properties, text.data(), static_cast<int>(text.size()));
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    fprintf(stderr, "usage: bench_lean BUS_PORT STORE_PORT TOPIC\n");
    return 2;
  }
  store = redisConnect("127.0.0.1", atoi(argv[2]));
  if (store == nullptr || store->err != 0) return 1;
  return bench::Serve(atoi(argv[1]), argv[3], Answer);
}
