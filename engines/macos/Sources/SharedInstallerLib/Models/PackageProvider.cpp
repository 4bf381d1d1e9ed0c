#include "Models/PackageProvider.h"

namespace installer {

std::optional<std::string_view> code(const AcquisitionError& error) {
  const auto* const ours = std::get_if<ProviderError>(&error);
  if (ours == nullptr) return std::nullopt;
  return ours->code();
}

std::string errorDescription(const AcquisitionError& error) {
  if (const auto* const ours = std::get_if<ProviderError>(&error)) return ours->errorDescription();
  return std::get<Error>(error).localizedDescription;
}

const InstallerRetirement* retirement(const AcquisitionError& error) {
  const auto* const ours = std::get_if<ProviderError>(&error);
  if (ours == nullptr || !ours->retirement()) return nullptr;
  return &*ours->retirement();
}

}  // namespace installer
