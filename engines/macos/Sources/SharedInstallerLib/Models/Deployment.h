// The hosts and addresses of this deployment, for a build without an `installer_config.json`.
// No other file of the engine names them, except the catalog, which has the apps' web pages.
#pragma once

#include <array>
#include <string_view>

namespace installer::Deployment {

inline constexpr std::string_view downloadPageURL = "https://www.kelo.example/download/";
inline constexpr std::string_view feedbackURL = "https://www.kelo.example/download/contact-us.html";

// The publisher's main domain, its public CDN, the local data centre's public CDN, its static-content CDN.
inline constexpr std::array<std::string_view, 4> trustedDownloadDomains{
    "kelo.example", "cdn-kelo.example", "local-cdn-kelo.example", "static-kelo.example"};

// A plain page that answers from any network. The connectivity probe requests it.
inline constexpr std::string_view connectivityProbeURL = "https://www.kelo.example";

inline constexpr std::string_view signingTeamId = "QX7M4R2V9D";

}  // namespace installer::Deployment
