// Whether the CDN holds one package of an app per processor, or one for both.
#pragma once

namespace installer {

enum class CDNArchScope { perArch, universal };

}  // namespace installer
