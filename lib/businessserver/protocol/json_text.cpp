#include "protocol/json_text.h"

#include <json/reader.h>
#include <json/writer.h>

#include <exception>
#include <memory>
#include <sstream>

namespace businessserver {

bool ParseJson(std::string_view text, Json::Value& document) {
// Kept: the library's newer reader accepts other texts, and stored documents depend on the difference.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
  Json::Reader reader;
#pragma GCC diagnostic pop
  try {
    return reader.parse(text.data(), text.data() + text.size(), document, true);
  } catch (const std::exception&) {  // nesting beyond the reader's limit
    return false;
  }
}

// What Json::Value::toStyledString gives, with a writer made once: making one costs more than writing a reply.
std::string StyledText(const Json::Value& document) {
  static const std::unique_ptr<Json::StreamWriter> writer(Json::StreamWriterBuilder().newStreamWriter());
  std::ostringstream text;
  if (document.hasComment(Json::commentBefore)) text << '\n';
  writer->write(document, &text);
  text << '\n';
  return text.str();
}

}  // namespace businessserver
