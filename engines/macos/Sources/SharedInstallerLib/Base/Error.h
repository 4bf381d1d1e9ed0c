// A failure is a value. No exception crosses a service of the seam, and a Result can't be dropped silently.
#pragma once

#include <cstdint>
#include <expected>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

namespace installer {

// The domains that the engine distinguishes. A host maps its own failures to them.
namespace ErrorDomain {
inline constexpr std::string_view cocoa = "NSCocoaErrorDomain";
inline constexpr std::string_view posix = "NSPOSIXErrorDomain";
inline constexpr std::string_view url = "NSURLErrorDomain";
}  // namespace ErrorDomain

// The codes of `ErrorDomain::cocoa` for files.
namespace CocoaError {
inline constexpr std::int64_t fileNoSuchFile = 4;           // the item to remove, move or copy doesn't exist
inline constexpr std::int64_t fileReadUnknown = 256;        // any other read failure
inline constexpr std::int64_t fileReadNoPermission = 257;   // may not read it
inline constexpr std::int64_t fileReadNoSuchFile = 260;     // the file to read doesn't exist
inline constexpr std::int64_t fileReadCorrupt = 259;        // the bytes aren't in the expected format
inline constexpr std::int64_t fileWriteUnknown = 512;       // any other write failure
inline constexpr std::int64_t fileWriteNoPermission = 513;  // may not write, remove or move it
inline constexpr std::int64_t fileWriteFileExists = 516;    // the destination already exists
inline constexpr std::int64_t fileWriteOutOfSpace = 640;    // the volume is full
inline constexpr std::int64_t fileWriteVolumeReadOnly = 642;  // the volume is read-only
}  // namespace CocoaError

// Codes of `ErrorDomain::url`.
namespace URLErrorCode {
inline constexpr std::int64_t unknown = -1;
inline constexpr std::int64_t cancelled = -999;
inline constexpr std::int64_t badURL = -1000;
inline constexpr std::int64_t timedOut = -1001;
inline constexpr std::int64_t unsupportedURL = -1002;
inline constexpr std::int64_t cannotFindHost = -1003;
inline constexpr std::int64_t cannotConnectToHost = -1004;
inline constexpr std::int64_t networkConnectionLost = -1005;
inline constexpr std::int64_t httpTooManyRedirects = -1007;
inline constexpr std::int64_t notConnectedToInternet = -1009;
inline constexpr std::int64_t badServerResponse = -1011;
inline constexpr std::int64_t internationalRoamingOff = -1018;
inline constexpr std::int64_t callIsActive = -1019;
inline constexpr std::int64_t dataNotAllowed = -1020;
inline constexpr std::int64_t dataLengthExceedsMaximum = -1103;
inline constexpr std::int64_t secureConnectionFailed = -1200;
inline constexpr std::int64_t serverCertificateUntrusted = -1202;
inline constexpr std::int64_t cannotCreateFile = -3000;
inline constexpr std::int64_t cannotWriteToFile = -3003;
}  // namespace URLErrorCode

struct Error {
  std::string domain;                // one of ErrorDomain, or one of the host
  std::int64_t code = 0;             // valid within `domain` only
  std::string localizedDescription;  // a sentence for a person and for the log
  // The resume data of a failed download; null when it can't be resumed. Opaque to the engine, which passes
  // it to `URLSession::downloadTaskWithResumeData` unchanged.
  std::shared_ptr<const std::string> downloadResumeData;

  bool is(std::string_view otherDomain, std::int64_t otherCode) const {
    return domain == otherDomain && code == otherCode;
  }
};

// A std::expected that the compiler doesn't let a caller drop.
template <class T, class E>
class [[nodiscard]] Expected : public std::expected<T, E> {
 public:
  using std::expected<T, E>::expected;
  Expected() = default;
  Expected(std::expected<T, E> other) : std::expected<T, E>{std::move(other)} {}

  // Without it, the comparison of a std::expected with a plain value would be chosen: two failures would
  // always differ.
  friend bool operator==(const Expected&, const Expected&) = default;
};

template <class T = void>
using Result = Expected<T, Error>;

// The failure of `outcome`, for the caller of a function that ends with it.
template <class T, class E>
std::unexpected<E> handOn(const Expected<T, E>& outcome) {
  return std::unexpected(outcome.error());
}

inline std::unexpected<Error> failure(std::string_view domain, std::int64_t code, std::string description) {
  return std::unexpected(Error{std::string{domain}, code, std::move(description), nullptr});
}

}  // namespace installer
