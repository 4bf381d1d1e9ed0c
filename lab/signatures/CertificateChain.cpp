#include "CertificateChain.h"

#include <algorithm>
#include <array>
#include <memory>
#include <openssl/objects.h>
#include <openssl/x509.h>
#include <openssl/x509_vfy.h>
#include <openssl/x509v3.h>
#include <string>

namespace lab {

namespace {

constexpr std::string_view kVendorArc = "1.2.840.113635.100.6.";

struct Judgement {
  Expiry expiry = Expiry::fatal;
  bool expired = false;
};

std::string objectText(const ASN1_OBJECT* object) {
  std::array<char, 128> text{};
  const int length = OBJ_obj2txt(text.data(), static_cast<int>(text.size()), object, 1);
  return length > 0 && static_cast<std::size_t>(length) < text.size() ? text.data() : "";
}

// True when every critical extension that OpenSSL doesn't support is in the vendor's arc.
bool onlyVendorExtensionsAreUnknown(const X509* certificate) {
  for (int i = 0; i < X509_get_ext_count(certificate); ++i) {
    X509_EXTENSION* extension = X509_get_ext(certificate, i);
    if (X509_EXTENSION_get_critical(extension) == 0 || X509_supported_extension(extension) == 1) continue;
    if (!objectText(X509_EXTENSION_get_object(extension)).starts_with(kVendorArc)) return false;
  }
  return true;
}

int onChainProblem(int ok, X509_STORE_CTX* context) {
  if (ok == 1) return ok;
  auto* judgement = static_cast<Judgement*>(X509_STORE_CTX_get_app_data(context));
  const int error = X509_STORE_CTX_get_error(context);
  const X509* current = X509_STORE_CTX_get_current_cert(context);
  if (error == X509_V_ERR_UNHANDLED_CRITICAL_EXTENSION && current != nullptr) {
    return onlyVendorExtensionsAreUnknown(current) ? 1 : 0;
  }
  if (error == X509_V_ERR_CERT_HAS_EXPIRED && judgement->expiry == Expiry::tolerated) {
    judgement->expired = true;
    return 1;
  }
  return 0;
}

struct FreeStack {
  void operator()(STACK_OF(X509) * stack) const { sk_X509_free(stack); }
};

std::vector<Certificate> inChainOrder(X509_STORE_CTX* context, std::span<const Certificate> known) {
  std::vector<Certificate> ordered;
  STACK_OF(X509)* chain = X509_STORE_CTX_get0_chain(context);
  for (int i = 0; i < sk_X509_num(chain); ++i) {
    const X509* link = sk_X509_value(chain, i);
    const auto found = std::ranges::find_if(
        known, [&](const Certificate& one) { return X509_cmp(one.handle(), link) == 0; });
    if (found != known.end()) ordered.push_back(*found);
  }
  return ordered;
}

std::string explain(X509_STORE_CTX* context, Purpose purpose) {
  const std::string owner = purpose == Purpose::timestamp ? "the time server" : "the signer";
  const int error = X509_STORE_CTX_get_error(context);
  switch (error) {
    case X509_V_ERR_CERT_HAS_EXPIRED: return "a signing certificate had expired";
    case X509_V_ERR_CERT_NOT_YET_VALID: return "a signing certificate wasn't valid yet";
    case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT: return owner + " is self-signed and not trusted";
    case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN: return owner + "'s root certificate isn't trusted";
    default:
      return fmt::format("{}'s certificate chain isn't trusted ({})", owner,
                         X509_verify_cert_error_string(error));
  }
}

}  // namespace

Outcome<CertificateChain> buildChain(const ChainQuestion& question, const Anchors& anchors) {
  const std::unique_ptr<X509_STORE, decltype(&X509_STORE_free)> store(X509_STORE_new(), X509_STORE_free);
  const std::unique_ptr<X509_STORE_CTX, decltype(&X509_STORE_CTX_free)> context(X509_STORE_CTX_new(),
                                                                                X509_STORE_CTX_free);
  const std::unique_ptr<STACK_OF(X509), FreeStack> untrusted(sk_X509_new_null());
  std::vector<Certificate> known(question.others.begin(), question.others.end());
  known.push_back(question.leaf);
  for (const auto& named : {anchors.testAuthority(), anchors.timestampAuthority()}) {
    if (named) known.push_back(*named);
  }
  for (const Certificate& certificate : known) {
    if (anchors.kindOf(certificate, question.purpose)) {
      X509_STORE_add_cert(store.get(), certificate.handle());
    } else {
      sk_X509_push(untrusted.get(), certificate.handle());
    }
  }
  X509_STORE_CTX_init(context.get(), store.get(), question.leaf.handle(), untrusted.get());
  Judgement judgement{question.expiry, false};
  X509_STORE_CTX_set_app_data(context.get(), &judgement);
  X509_STORE_CTX_set_verify_cb(context.get(), onChainProblem);
  X509_STORE_CTX_set_time(context.get(), 0, static_cast<time_t>(question.at.time_since_epoch().count()));
  if (X509_verify_cert(context.get()) != 1) return refuse("{}", explain(context.get(), question.purpose));
  CertificateChain chain{inChainOrder(context.get(), known), AnchorKind::platform, judgement.expired};
  if (chain.certificates.size() < 2) return refuse("the certificate chain is too short");
  const auto kind = anchors.kindOf(chain.root(), question.purpose);
  if (!kind) return refuse("the root certificate isn't trusted");
  chain.anchor = *kind;
  return chain;
}

}  // namespace lab
