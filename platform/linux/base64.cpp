#include "base64.h"

#include <sodium.h>

#include <algorithm>

namespace lxbase {

namespace {
constexpr int kVariant = sodium_base64_VARIANT_ORIGINAL;
}

std::string Base64::EncodeFromArray(const void* data, size_t size) {
  std::string text(sodium_base64_ENCODED_LEN(size, kVariant), '\0');
  sodium_bin2base64(text.data(), text.size(), static_cast<const unsigned char*>(data), size, kVariant);
  text.pop_back();  // the codec's own terminator
  return text;
}

std::string Base64::DecodeFromArray(const char* text, size_t size, int /*flag*/, int* decoded_size) {
  std::string data(size / 4 * 3, '\0');
  size_t length = 0;
  // The codec takes some bytes above 0x7F for digits where plain char is signed.
  const bool ascii = std::all_of(text, text + size, [](char c) { return (static_cast<unsigned char>(c) & 0x80) == 0; });
  // Without an end pointer the codec accepts nothing but a whole, padded text.
  const bool ok = ascii && sodium_base642bin(reinterpret_cast<unsigned char*>(data.data()), data.size(), text, size,
                                             nullptr, &length, nullptr, kVariant) == 0;
  data.resize(ok ? length : 0);
  if (decoded_size != nullptr) *decoded_size = ok ? static_cast<int>(length) : -1;
  return data;
}

}  // namespace lxbase
