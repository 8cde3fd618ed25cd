#include "publisher/detached_signature.hpp"

#include <system_error>

#include "base/file_tree.hpp"
#include "publisher/disk.hpp"
#include "publisher/mirror_check.hpp"

namespace tarnwick::publisher {

namespace fs = std::filesystem;

bool looksLikeSignature(const fs::path& file) {
  constexpr std::uintmax_t largest = 1U << 20U;
  const auto content = contentOf(file, Follow::yes, largest);
  return content && content->starts_with("#clamsign-");
}

fs::path fetchSignature(Upstream& upstream, const std::string& name) {
  fs::path file = upstream.file(name);
  if (!isFile(file)) upstream.askForFile(name);
  if (looksLikeSignature(file)) return file;
  removeFile(file);
  return {};
}

bool fitsContainer(const fs::path& signature, const fs::path& container, const std::string& name,
                   const Workplace& work) {
  const fs::path folder = work.folder() / "signed";
  makeFolder(folder);
  std::error_code error;
  fs::create_hard_link(fs::canonical(container, error), folder / (name + ".cvd"), error);
  if (error) write(folder / (name + ".cvd"), contentOf(container).value_or(""));
  write(folder / signature.filename(), contentOf(signature).value_or(""));
  const bool good = isGoodContainer(folder / (name + ".cvd"), work);
  removeTree(folder);
  return good;
}

}  // namespace tarnwick::publisher
