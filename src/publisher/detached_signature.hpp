#pragma once

#include <filesystem>
#include <string>

#include "publisher/upstream.hpp"

/// Detached signatures (NAME-VERSION.cvd.sign, NAME-VERSION.cdiff.sign), which ClamAV asks for from
/// 1.5 on. Without one a client goes by the signature within; a wrong one makes it refuse the file.
namespace tarnwick::publisher {

/// Whether a file looks like such a signature, and not like a server's page.
bool looksLikeSignature(const std::filesystem::path& file);

/// Has freshclam fetch one into its folder, unless it is there. Returns where it is; an empty path
/// where there is none to be had.
std::filesystem::path fetchSignature(Upstream& upstream, const std::string& name);

/// Whether the installed sigtool, as far as it knows of such signatures, takes this container with
/// it. `name` is that of the database.
bool fitsContainer(const std::filesystem::path& signature, const std::filesystem::path& container,
                   const std::string& name, const Workplace& work);

}  // namespace tarnwick::publisher
