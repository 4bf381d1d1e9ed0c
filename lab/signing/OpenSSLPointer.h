// Owning pointers of OpenSSL's objects.
#pragma once

#include <memory>
#include <openssl/bio.h>
#include <openssl/cms.h>
#include <openssl/evp.h>
#include <openssl/provider.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

namespace lab {

template <auto function>
struct FreeBy {
  template <class T>
  void operator()(T* object) const {
    function(object);
  }
};

using KeyPointer = std::shared_ptr<EVP_PKEY>;
using X509Pointer = std::shared_ptr<X509>;
using BIOPointer = std::unique_ptr<BIO, FreeBy<BIO_free_all>>;
using CMSPointer = std::unique_ptr<CMS_ContentInfo, FreeBy<CMS_ContentInfo_free>>;
using ObjectPointer = std::unique_ptr<ASN1_OBJECT, FreeBy<ASN1_OBJECT_free>>;
using ExtensionPointer = std::unique_ptr<X509_EXTENSION, FreeBy<X509_EXTENSION_free>>;
using AttributePointer = std::unique_ptr<X509_ATTRIBUTE, FreeBy<X509_ATTRIBUTE_free>>;
using ProviderPointer = std::unique_ptr<OSSL_PROVIDER, FreeBy<OSSL_PROVIDER_unload>>;
using TimePointer = std::unique_ptr<ASN1_TIME, FreeBy<ASN1_TIME_free>>;

inline X509Pointer own(X509* certificate) {
  return {certificate, X509_free};
}
inline KeyPointer own(EVP_PKEY* key) {
  return {key, EVP_PKEY_free};
}

}  // namespace lab
