// Why a file of the content delivery network couldn't be read. The three kinds have different consequences.
#pragma once

namespace installer {

enum class CDNFetchError {
  notFound,   // the server or its name says that there is no such file; perhaps the tree is gone
  transient,  // the attempt failed and may work later; a network problem
  untrusted   // the address, a redirect or the final host isn't one that the build names
};

}  // namespace installer
