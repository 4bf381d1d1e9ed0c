// Encodings that signing needs and OpenSSL has no functions for.
#pragma once

#include <chrono>
#include <initializer_list>
#include <string>

#include "Bytes.h"
#include "OpenSSLPointer.h"

namespace lab {

// Calls one of OpenSSL's i2d functions.
template <class Object, class Encode>
Bytes derOf(const Object* object, Encode function) {
  unsigned char* encoded = nullptr;
  const int length = function(object, &encoded);
  if (length <= 0) return {};
  Bytes bytes(encoded, encoded + length);
  OPENSSL_free(encoded);
  return bytes;
}

Bytes derOf(const X509* certificate);
Bytes derOf(const CMS_ContentInfo* message);
Bytes derElement(std::uint8_t tag, ByteView content);
Bytes derSequence(std::initializer_list<Bytes> parts);
Bytes derObjectIdentifier(const char* text);
Bytes derGeneralizedTime(std::chrono::sys_seconds time);
std::string base64(ByteView bytes);

}  // namespace lab
