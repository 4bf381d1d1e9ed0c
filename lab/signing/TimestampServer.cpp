#include "TimestampServer.h"

#include <algorithm>
#include <array>
#include <curl/curl.h>
#include <openssl/rand.h>
#include <openssl/ts.h>

#include "DER.h"
#include "Digest.h"
#include "OpenSSLPointer.h"

namespace lab {

namespace {

constexpr long kPatience = 60;                   // seconds
constexpr std::size_t kLongestAnswer = 1 << 20;  // bytes

using RequestPointer = std::unique_ptr<TS_REQ, FreeBy<TS_REQ_free>>;
using ResponsePointer = std::unique_ptr<TS_RESP, FreeBy<TS_RESP_free>>;
using ImprintPointer = std::unique_ptr<TS_MSG_IMPRINT, FreeBy<TS_MSG_IMPRINT_free>>;
using AlgorithmPointer = std::unique_ptr<X509_ALGOR, FreeBy<X509_ALGOR_free>>;
using IntegerPointer = std::unique_ptr<ASN1_INTEGER, FreeBy<ASN1_INTEGER_free>>;
using CheckPointer = std::unique_ptr<TS_VERIFY_CTX, FreeBy<TS_VERIFY_CTX_free>>;
using CurlPointer = std::unique_ptr<CURL, FreeBy<curl_easy_cleanup>>;
using HeadersPointer = std::unique_ptr<curl_slist, FreeBy<curl_slist_free_all>>;

RequestPointer requestFor(ByteView signature) {
  Bytes digest = copyOf(digestOf(HashType::sha256, signature).bytes());
  const AlgorithmPointer algorithm(X509_ALGOR_new());
  X509_ALGOR_set0(algorithm.get(), OBJ_nid2obj(NID_sha256), V_ASN1_NULL, nullptr);
  const ImprintPointer imprint(TS_MSG_IMPRINT_new());
  TS_MSG_IMPRINT_set_algo(imprint.get(), algorithm.get());
  TS_MSG_IMPRINT_set_msg(imprint.get(), digest.data(), static_cast<int>(digest.size()));
  std::uint64_t number = 0;
  RAND_bytes(reinterpret_cast<unsigned char*>(&number), sizeof(number));
  const IntegerPointer nonce(ASN1_INTEGER_new());
  ASN1_INTEGER_set_uint64(nonce.get(), number);
  RequestPointer request(TS_REQ_new());
  TS_REQ_set_version(request.get(), 1);
  TS_REQ_set_msg_imprint(request.get(), imprint.get());
  TS_REQ_set_nonce(request.get(), nonce.get());
  TS_REQ_set_cert_req(request.get(), 1);
  return request;
}

// Returns 0 to stop the transfer.
std::size_t collect(const char* bytes, std::size_t /*one*/, std::size_t count, void* answer) {
  auto& collected = *static_cast<Bytes*>(answer);
  if (collected.size() + count > kLongestAnswer) return 0;
  collected.insert(collected.end(), bytes, bytes + count);
  return count;
}

Outcome<Bytes> post(const std::string& url, const Bytes& query) {
  const CurlPointer curl(curl_easy_init());
  const HeadersPointer headers(curl_slist_append(nullptr, "Content-Type: application/timestamp-query"));
  std::array<char, CURL_ERROR_SIZE> reason{};
  Bytes answer;
  curl_easy_setopt(curl.get(), CURLOPT_URL, url.c_str());
  curl_easy_setopt(curl.get(), CURLOPT_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(curl.get(), CURLOPT_HTTPHEADER, headers.get());
  curl_easy_setopt(curl.get(), CURLOPT_POSTFIELDS, query.data());
  curl_easy_setopt(curl.get(), CURLOPT_POSTFIELDSIZE, static_cast<long>(query.size()));
  curl_easy_setopt(curl.get(), CURLOPT_WRITEFUNCTION, collect);
  curl_easy_setopt(curl.get(), CURLOPT_WRITEDATA, &answer);
  curl_easy_setopt(curl.get(), CURLOPT_ERRORBUFFER, reason.data());
  curl_easy_setopt(curl.get(), CURLOPT_FAILONERROR, 1L);
  curl_easy_setopt(curl.get(), CURLOPT_TIMEOUT, kPatience);
  curl_easy_setopt(curl.get(), CURLOPT_NOSIGNAL, 1L);
  const CURLcode ended = curl_easy_perform(curl.get());
  if (ended == CURLE_OK) return answer;
  return refuse("timestamping server: {}", reason[0] != '\0' ? reason.data() : curl_easy_strerror(ended));
}

}  // namespace

Outcome<Bytes> timestampFrom(const std::string& url, ByteView signature) {
  const RequestPointer request = requestFor(signature);
  const auto answer = post(url, derOf(request.get(), i2d_TS_REQ));
  if (!answer) return handOn(answer);
  const unsigned char* from = answer->data();
  const ResponsePointer response(d2i_TS_RESP(nullptr, &from, static_cast<long>(answer->size())));
  if (!response) return refuse("timestamping server: the answer isn't a timestamp response");
  // Checks status, imprint and nonce, not the signer.
  const CheckPointer check(TS_REQ_to_TS_VERIFY_CTX(request.get(), nullptr));
  if (TS_RESP_verify_response(check.get(), response.get()) != 1) {
    return refuse("timestamping server: the request is refused, or the answer is to another one");
  }
  return derOf(TS_RESP_get_token(response.get()), i2d_PKCS7);
}

}  // namespace lab
