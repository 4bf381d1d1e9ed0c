#include "Support/ServerResource.h"

#include <functional>
#include <utility>

namespace installer::test {

ServerAnswer answering(int status, std::string body) {
  return {.status = status, .body = std::move(body)};
}

ServerAnswer failing(std::int64_t code, std::string description) {
  return {.kind = ServerAnswer::Kind::failure, .errorCode = code, .errorDescription = std::move(description)};
}

ServerAnswer redirecting(std::string location, int status) {
  return {.kind = ServerAnswer::Kind::redirect, .status = status, .location = std::move(location)};
}

ServerResource& ServerResource::answers(int status, std::string body) {
  lasting_ = answering(status, body);
  body_ = std::move(body);
  return *this;
}

ServerResource& ServerResource::answersNext(int status, std::string body) {
  next_.push_back(answering(status, std::move(body)));
  return *this;
}

ServerResource& ServerResource::dropsNext(std::size_t bytes, std::int64_t code) {
  next_.push_back({.dropsAfter = bytes, .dropCode = code});
  return *this;
}

ServerResource& ServerResource::dropsAlways(std::size_t bytes, std::int64_t code) {
  lasting_.dropsAfter = bytes;
  lasting_.dropCode = code;
  return *this;
}

ServerResource& ServerResource::stallsNext(std::size_t bytes) {
  next_.push_back({.dropsAfter = bytes, .dropCode = URLErrorCode::timedOut, .stalls = true});
  return *this;
}

ServerResource& ServerResource::fails(std::int64_t code, std::string description) {
  lasting_ = failing(code, std::move(description));
  return *this;
}

ServerResource& ServerResource::failsNext(std::int64_t code, std::string description) {
  next_.push_back(failing(code, std::move(description)));
  return *this;
}

ServerResource& ServerResource::redirects(std::string location, int status) {
  lasting_ = redirecting(std::move(location), status);
  return *this;
}

ServerResource& ServerResource::redirectsNext(std::string location, int status) {
  next_.push_back(redirecting(std::move(location), status));
  return *this;
}

ServerResource& ServerResource::neverAnswers() {
  lasting_ = {.kind = ServerAnswer::Kind::silence};
  return *this;
}

ServerResource& ServerResource::neverAnswersNext() {
  next_.push_back({.kind = ServerAnswer::Kind::silence});
  return *this;
}

ServerResource& ServerResource::takes(Duration latency) {
  latency_ = latency;
  return *this;
}

ServerResource& ServerResource::inPieces(std::size_t bytes, Duration every) {
  pieceBytes_ = bytes;
  pieceInterval_ = every;
  return *this;
}

ServerResource& ServerResource::withoutLength() {
  saysLength_ = false;
  return *this;
}

ServerResource& ServerResource::withValidator(std::string validator) {
  hasValidator_ = true;
  validator_ = std::move(validator);
  return *this;
}

ServerResource& ServerResource::withoutValidator() {
  hasValidator_ = false;
  return *this;
}

ServerResource& ServerResource::ignoresRanges() {
  acceptsRanges_ = false;
  return *this;
}

// A drop without its own answer cuts the lasting body.
ServerAnswer ServerResource::takeNext() {
  if (next_.empty()) return lasting_;
  auto answer = std::move(next_.front());
  next_.pop_front();
  if (answer.dropsAfter) answer.body = body_;
  return answer;
}

std::optional<std::string> ServerResource::validatorOf(const std::string& body) const {
  if (!hasValidator_) return std::nullopt;
  return validator_.value_or(std::to_string(std::hash<std::string>{}(body)));
}

}  // namespace installer::test
