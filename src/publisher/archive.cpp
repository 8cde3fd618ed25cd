#include "publisher/archive.hpp"

#include <archive.h>
#include <archive_entry.h>

#include <array>
#include <memory>

namespace tarnwick::publisher {
namespace {

struct Free {
  void operator()(archive* opened) const { archive_free(opened); }
  void operator()(archive_entry* entry) const { archive_entry_free(entry); }
};
using Archive = std::unique_ptr<archive, Free>;
using Entry = std::unique_ptr<archive_entry, Free>;

/// The name of a plain file; none for anything else.
std::optional<std::string> plainNameOf(archive_entry* entry) {
  const char* const name = archive_entry_pathname(entry);
  if (archive_entry_filetype(entry) != AE_IFREG || archive_entry_hardlink(entry) != nullptr ||
      name == nullptr) {
    return std::nullopt;
  }
  const std::string text = name;
  if (text.empty() || text.front() == '.' || text.find('/') != std::string::npos) {
    return std::nullopt;
  }
  return text;
}

/// False when it could not be read or is more than `left`, from which it is taken.
bool readInto(std::string& content, archive* from, std::uint64_t& left) {
  std::array<char, 65536> buffer;  // NOLINT(*-member-init): filled by the call
  for (;;) {
    const la_ssize_t count = archive_read_data(from, buffer.data(), buffer.size());
    if (count <= 0) return count == 0;
    if (static_cast<std::uint64_t>(count) > left) return false;
    left -= static_cast<std::uint64_t>(count);
    content.append(buffer.data(), static_cast<std::size_t>(count));
  }
}

la_ssize_t take(archive* /*opened*/, void* into, const void* bytes, size_t count) {
  static_cast<std::string*>(into)->append(static_cast<const char*>(bytes), count);
  return static_cast<la_ssize_t>(count);
}

bool write(archive* to, const std::string& name, const std::string& content) {
  constexpr int mode = 0644;
  const Entry entry(archive_entry_new());
  archive_entry_set_pathname(entry.get(), name.c_str());
  archive_entry_set_size(entry.get(), static_cast<la_int64_t>(content.size()));
  archive_entry_set_filetype(entry.get(), AE_IFREG);
  archive_entry_set_perm(entry.get(), mode);
  return archive_write_header(to, entry.get()) == ARCHIVE_OK &&
         archive_write_data(to, content.data(), content.size()) ==
             static_cast<la_ssize_t>(content.size());
}

}  // namespace

std::optional<FileSet> unpackArchive(std::string_view archive, std::uint64_t limit) {
  const Archive opened(archive_read_new());
  archive_read_support_filter_gzip(opened.get());
  archive_read_support_filter_none(opened.get());
  archive_read_support_format_tar(opened.get());
  if (archive_read_open_memory(opened.get(), archive.data(), archive.size()) != ARCHIVE_OK) {
    return std::nullopt;
  }
  FileSet files;
  for (;;) {
    archive_entry* entry = nullptr;
    const int result = archive_read_next_header(opened.get(), &entry);
    if (result == ARCHIVE_EOF) return files;
    if (result != ARCHIVE_OK) return std::nullopt;
    const auto name = plainNameOf(entry);
    if (!name || files.contains(*name)) return std::nullopt;
    if (!readInto(files[*name], opened.get(), limit)) return std::nullopt;
  }
}

std::optional<std::string> packArchive(const FileSet& files) {
  std::string packed;
  const Archive opened(archive_write_new());
  archive_write_add_filter_gzip(opened.get());
  archive_write_set_options(opened.get(), "gzip:!timestamp");
  archive_write_set_format_ustar(opened.get());
  if (archive_write_open(opened.get(), &packed, nullptr, &take, nullptr) != ARCHIVE_OK) {
    return std::nullopt;
  }
  for (const auto& [name, content] : files) {
    if (!write(opened.get(), name, content)) return std::nullopt;
  }
  if (archive_write_close(opened.get()) != ARCHIVE_OK) return std::nullopt;
  return packed;
}

}  // namespace tarnwick::publisher
