#include "Timestamp.h"

namespace lab {

namespace {

constexpr const char* kTimestampingUsage = "1.3.6.1.5.5.7.3.8";

struct TimestampInfo {
  HashType imprintType = HashType::sha256;
  Bytes imprint;
  std::chrono::sys_seconds time;
};

// Reads TSTInfo: version, policy, messageImprint, serialNumber, genTime; the rest isn't needed.
Outcome<TimestampInfo> readInfo(ByteView content) {
  const auto root = readBER(content);
  if (!root || !root->is(kBERSequence) || root->children.size() < 5) return refuse("timestamp is malformed");
  const BERElement* imprint = root->child(2);
  const BERElement* algorithm = imprint->child(0);
  const BERElement* hash = imprint->child(1);
  if (algorithm == nullptr || hash == nullptr || !hash->is(kBEROctetString))
    return refuse("timestamp is malformed");
  const auto type = digestTypeOf(objectIdentifierOf(algorithm->child(0)));
  const auto octets = octetsOf(*hash);
  const auto time = root->children[4].is(kBERGeneralizedTime) ? timeOf(root->children[4]) : std::nullopt;
  if (!type || !octets || !time) return refuse("timestamp is malformed");
  return TimestampInfo{*type, *octets, *time};
}

Outcome<Timestamp> checkToken(const SignedData& signature, ByteView token, const Anchors& anchors,
                              std::chrono::sys_seconds now) {
  const auto data = readSignedData(token, signature.certificates);
  if (!data) return handOn(data);
  if (!data->content) return refuse("timestamp has no content");
  if (auto holds = checkSignature(*data, *data->content, kTimestampInfoType); !holds) return handOn(holds);
  const auto info = readInfo(*data->content);
  if (!info) return handOn(info);
  if (!equal(info->imprint, digestOf(info->imprintType, signature.signature).bytes()))
    return refuse("timestamp is for another signature");
  if (info->time > now + kClockTolerance) return refuse("timestamp is in the future");
  if (!data->signer->hasExtendedUsage(kTimestampingUsage))
    return refuse("timestamp's certificate isn't for timestamping");
  std::vector<Certificate> others = data->certificates;
  others.insert(others.end(), signature.certificates.begin(), signature.certificates.end());
  auto chain = buildChain({*data->signer, others, info->time, Expiry::fatal, Purpose::timestamp}, anchors);
  if (!chain) return handOn(chain);
  return Timestamp{info->time, *chain};
}

}  // namespace

Outcome<std::optional<Timestamp>> readTimestamp(const SignedData& signature, const Anchors& anchors,
                                                std::chrono::sys_seconds now) {
  const auto found = signature.unsignedAttributes.find(kTimestampAttribute);
  if (found == signature.unsignedAttributes.end()) return std::nullopt;
  if (found->second.size() != 1) return refuse("secure timestamp: there must be one");
  auto timestamp = checkToken(signature, found->second.front().raw, anchors, now);
  if (!timestamp) return handOn(timestamp, "secure timestamp");
  return *timestamp;
}

}  // namespace lab
