#include "publisher/site.hpp"

#include <fmt/format.h>

#include <array>
#include <system_error>

#include "base/durable_file.hpp"
#include "base/file_descriptor.hpp"
#include "base/standard_streams.hpp"
#include "base/text_rules.hpp"
#include "publisher/disk.hpp"
#include "publisher/refusal.hpp"

namespace tarnwick::publisher {
namespace {

namespace fs = std::filesystem;

struct Remembered {
  const char* name;
  const char* option;
  std::string SiteValues::*value;
};

constexpr std::array remembered{
    Remembered{"content_host", "--content-host", &SiteValues::contentHost},
    Remembered{"links_host", "--links-host", &SiteValues::linksHost},
    Remembered{"mirror_host", "--mirror-host", &SiteValues::mirrorHost},
    Remembered{"link_secret", "--link-secret", &SiteValues::linkSecret},
};

void recall(const Home& home, SiteValues& values) {
  const std::string text = contentOf(home.siteSettings).value_or("");
  for (const std::string_view line : split(text, '\n')) {
    const std::size_t end = line.find('=');
    if (end == std::string_view::npos) continue;
    for (const Remembered& row : remembered) {
      if (line.substr(0, end) == row.name) values.*row.value = line.substr(end + 1);
    }
  }
}

bool isPlain(std::string_view value) {
  constexpr std::string_view allowed =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789._-";
  return !value.empty() && value.find_first_not_of(allowed) == std::string_view::npos;
}

void requirePlain(const Home& home, const SiteValues& values) {
  for (const Remembered& row : remembered) {
    const std::string& value = values.*row.value;
    if (isPlain(value)) continue;
    refuse(
        fmt::format("\"{}\" cannot be used as a host name or secret: letters, digits, . _ - "
                    "only",
                    value));
  }
  for (const fs::path& path : {home.folder, values.certificate, values.certificateKey}) {
    if (path.string().find_first_of("\"$\\") == std::string::npos) continue;
    refuse(fmt::format("{} holds a character that nginx reads differently", path.string()));
  }
}

std::string server(const SiteValues& values, const std::string& host, const fs::path& root,
                   const std::string& locations) {
  return fmt::format(R"(server {{
    listen 443 ssl;
    listen [::]:443 ssl;
    server_name {};
    ssl_certificate "{}";
    ssl_certificate_key "{}";
    root "{}";
    default_type application/octet-stream;
    types {{ }}
    # Bodies as they lie on the disk: with their length and their date.
    gzip off;
    # A remembered file could outlive the release that replaced it.
    open_file_cache off;
    # With errors too, or a cache might keep that something was missing.
    add_header Cache-Control no-cache always;
{}
}}
)",
                     host, values.certificate.string(), values.certificateKey.string(),
                     root.string(), locations);
}

constexpr auto contentLocations = R"x(    location ~ "^/VestRUM2/Vestrum\.[a-z0-9.]+$" { }
    location / { return 404; })x";

std::string linksLocations(const SiteValues& values) {
  return replaced(R"x(    location ~ "^/(?<token>[A-Za-z0-9_-]+)/(?<expiry>[0-9]+))x"
                  R"x((?<path>/VestRUM2/Scripted/VestRUM[A-Za-z0-9.-]*)$" {
        secure_link $token,$expiry;
        secure_link_md5 "SECRET$path$expiry";
        if ($secure_link = "") { return 403; }
        if ($secure_link = "0") { return 410; }
        try_files $path =404;
    }
    location / { return 403; })x",
                  "SECRET", values.linkSecret);
}

// One name for each file: what lies behind the links is nobody's to ask for.
constexpr auto mirrorLocations = R"x(    location ~ "^/(current|sets)(/|$)" { return 404; }
    location / { try_files $uri =404; })x";

void remember(const Home& home, const SiteValues& values) {
  std::string text;
  for (const Remembered& row : remembered) {
    text += fmt::format("{}={}\n", row.name, values.*row.value);
  }
  if (const auto failure = writeFileWhole(home.siteSettings, text, 0600)) {
    throw std::system_error(failure->cause.error, std::generic_category(),
                            failure->cause.path.string());
  }
}

/// As far as the owner of the home can tell: a key that only root can read is as it should be.
bool isMissing(const fs::path& file) {
  std::error_code error;
  return !fs::exists(file, error) && !error;
}

void warnOfMissingCertificate(const SiteValues& values) {
  if (!isMissing(values.certificate) && !isMissing(values.certificateKey)) return;
  sayWrong(fmt::format("nginx will need {} and {}; see site --help", values.certificate.string(),
                       values.certificateKey.string()));
}

}  // namespace

SiteValues siteValues(const Home& home, const Invocation& invocation) {
  SiteValues values{.contentHost = "content.vestrum.example",
                    .linksHost = "links.vestrum.example",
                    .mirrorHost = "mirror.vestrum.example",
                    .linkSecret = "Kesto-Ra",
                    .certificate = home.folder / "tls" / "certificate.pem",
                    .certificateKey = home.folder / "tls" / "key.pem"};
  recall(home, values);
  for (const Remembered& row : remembered) {
    values.*row.value = invocation.value(row.option).value_or(values.*row.value);
  }
  values.certificate = invocation.value("--certificate").value_or(values.certificate);
  values.certificateKey = invocation.value("--certificate-key").value_or(values.certificateKey);
  requirePlain(home, values);
  return values;
}

void printSite(const std::string& homePath, const Invocation& invocation) {
  const Home home = locate(homePath);
  const SiteValues values = siteValues(home, invocation);
  if (invocation.has("--remember")) remember(home, values);
  warnOfMissingCertificate(values);
  writeToStandardOutput("# Include this file from nginx's http block.\n" +
                        server(values, values.contentHost, home.site, contentLocations) +
                        server(values, values.linksHost, home.site, linksLocations(values)) +
                        server(values, values.mirrorHost, home.mirror, mirrorLocations));
}

}  // namespace tarnwick::publisher
