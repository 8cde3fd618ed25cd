#include "transfer/http/destination_file.hpp"

#include <fcntl.h>
#include <unistd.h>

namespace tarnwick {

DestinationFile::~DestinationFile() {
  if (file_.isOpen() && !complete_) ::unlink(path_->c_str());
}

bool DestinationFile::append(std::string_view bytes) {
  return open() && writeFully(file_.get(), bytes);
}

bool DestinationFile::open() {
  if (file_.isOpen()) return true;
  if (!path_) return false;
  // Made anew: a link that somebody left under this name is not followed.
  ::unlink(path_->c_str());
  file_.reset(::open(path_->c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644));
  return file_.isOpen();
}

}  // namespace tarnwick
