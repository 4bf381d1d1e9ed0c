#include "DER.h"

#include <fmt/chrono.h>

namespace lab {

Bytes derOf(const X509* certificate) {
  return derOf(certificate, i2d_X509);
}

Bytes derOf(const CMS_ContentInfo* message) {
  return derOf(message, i2d_CMS_ContentInfo);
}

Bytes derElement(std::uint8_t tag, ByteView content) {
  Bytes element{tag};
  if (content.size() < 0x80) {
    element.push_back(static_cast<std::uint8_t>(content.size()));
  } else {
    element.push_back(0x82);
    element.push_back(static_cast<std::uint8_t>(content.size() >> 8U));
    element.push_back(static_cast<std::uint8_t>(content.size()));
  }
  element.insert(element.end(), content.begin(), content.end());
  return element;
}

Bytes derSequence(std::initializer_list<Bytes> parts) {
  Bytes content;
  for (const Bytes& part : parts) content.insert(content.end(), part.begin(), part.end());
  return derElement(0x30, content);
}

Bytes derObjectIdentifier(const char* text) {
  const ObjectPointer object(OBJ_txt2obj(text, 1));
  return derOf(object.get(), i2d_ASN1_OBJECT);
}

Bytes derGeneralizedTime(std::chrono::sys_seconds time) {
  const auto fields = fmt::gmtime(std::chrono::system_clock::to_time_t(time));
  const std::string text = fmt::format("{:%Y%m%d%H%M%S}Z", fields);
  return derElement(0x18, viewOf(text));
}

std::string base64(ByteView bytes) {
  std::string text(bytes.size() / 3 * 4 + 5, '\0');
  const int length = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), bytes.data(),
                                     static_cast<int>(bytes.size()));
  text.resize(static_cast<std::size_t>(length));
  return text;
}

}  // namespace lab
