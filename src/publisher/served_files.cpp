#include "publisher/served_files.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <ctime>

#include "publisher/disk.hpp"
#include "publisher/published.hpp"
#include "vendor/cud_updater.hpp"
#include "vendor/signed_links.hpp"

namespace tarnwick::publisher {
namespace {

constexpr auto scriptedPath = "/VestRUM2/Scripted/";
constexpr auto databasePath = "/VestRUM2/";
constexpr int linkSeconds = 600;

bool isOfContentHost(const std::string& name) {
  return name.starts_with("Vestrum.");
}

/// Installations take the number behind the first ":" of any answer for the version that is out,
/// and would fetch the whole container at every run.
bool readsAsVersion(std::string_view page) {
  return versionInText(page) > 0;
}

/// What the largest file of the home has, and a little more.
std::uint64_t largestFile(const Home& home) {
  constexpr std::uint64_t slack = 1U << 20U;
  std::uintmax_t largest = sizeOf(home.tree / "Vestrum.database");
  for (const auto& entry : entriesOf(home.scripted)) largest = std::max(largest, sizeOf(entry));
  return largest + slack;
}

/// As servers write it.
std::string httpDate(std::time_t moment) {
  constexpr std::size_t longest = 64;
  std::array<char, longest> text{};
  std::tm parts{};
  ::gmtime_r(&moment, &parts);
  const std::size_t length =
      std::strftime(text.data(), text.size(), "%a, %d %b %Y %H:%M:%S GMT", &parts);
  return {text.data(), length};
}

std::vector<std::string> detours(const SiteValues& values, std::string server) {
  if (server == values.linksHost || server == values.contentHost) return {};
  if (server.find(':') == std::string::npos) server += ":443";
  return {fmt::format("{}:443:{}", values.linksHost, server),
          fmt::format("{}:443:{}", values.contentHost, server)};
}

}  // namespace

ServedFiles::ServedFiles(const Home& home, const SiteValues& values, const std::string& server,
                         Findings& findings)
    : values_(values),
      findings_(findings),
      here_(treeOf(home)),
      http_(0),
      connectTo_(detours(values, server)),
      largestBody_(largestFile(home)) {}

HttpResult ServedFiles::ask(const std::string& url, const std::string& method, bool http2) {
  constexpr std::chrono::seconds silence(60);
  constexpr std::chrono::seconds shortest(600);
  constexpr std::uint64_t slowest = 16U << 10U;  // bytes a second
  const char* const authorities =
      std::getenv("CURL_CA_BUNDLE");  // NOLINT(concurrency-mt-unsafe): nobody sets it
  return http_.sendSynchronousRequest(
      {.url = url,
       .userAgent = "tarnwick-publish",
       .idleTimeout = silence,
       .method = method,
       .connectTo = connectTo_,
       .authorities = authorities != nullptr ? authorities : "",
       .totalTimeout = shortest + std::chrono::seconds(largestBody_ / slowest),
       .largestBody = largestBody_,
       .http2 = http2});
}

std::string ServedFiles::linkTo(const std::string& name, int seconds,
                                const std::string& secret) const {
  const auto now = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
  return signedLink({.host = values_.linksHost, .secret = secret}, scriptedPath + name,
                    now + seconds);
}

std::string ServedFiles::urlOf(const std::string& name) const {
  if (isOfContentHost(name)) {
    return fmt::format("https://{}{}{}", values_.contentHost, databasePath, name);
  }
  return linkTo(name, linkSeconds, values_.linkSecret);
}

void ServedFiles::noteFailure(const std::string& name, const HttpError& error) {
  findings_.damage(fmt::format("{} cannot be fetched: {}", name, error.description));
  failure_ = error.failure;
}

void ServedFiles::noteRefusal(const std::string& name, long status) {
  constexpr long found = 200;
  findings_.damage(fmt::format("{} is answered with status {}", name, status));
  const HttpResult result = ask(urlOf(name), "GET", true);
  const auto* const response = std::get_if<HttpResponse>(&result);
  if (response != nullptr && response->cameOverHttp2 && response->status == found) {
    findings_.damage(name + " is answered over HTTP/2 alone, which no installation speaks");
  }
}

void ServedFiles::fetch(const std::string& name) {
  constexpr long found = 200;
  const HttpResult result = ask(urlOf(name));
  const auto* const response = std::get_if<HttpResponse>(&result);
  if (response == nullptr) {
    noteFailure(name, std::get<HttpError>(result));
  } else if (response->status != found) {
    noteRefusal(name, response->status);
  } else if (!response->header("content-length")) {
    findings_.damage(name + " comes without a length");
  } else if (!response->header("last-modified")) {
    findings_.damage(name + " comes without a date");
  } else if (here_.read(name) == response->body) {
    sameAsHere_.insert(name);
    return;
  } else {
    other_[name] = response->body;
    return;
  }
  anyMissing_ = true;
}

void ServedFiles::expectRefusal(const std::vector<long>& wanted, const std::string& what,
                                const std::string& url) {
  constexpr long found = 200;
  const HttpResult result = ask(url);
  const auto* const response = std::get_if<HttpResponse>(&result);
  const long status = response != nullptr ? response->status : 0;
  if (std::ranges::find(wanted, status) == wanted.end()) {
    findings_.damage(fmt::format("{} is answered with status {:03}, and should be with {}", what,
                                 status, wanted.front()));
  }
  if (response != nullptr && status != found && readsAsVersion(response->body)) {
    findings_.damage(what +
                     " is answered with a page that installations read as a version: \":\" "
                     "and a number behind it");
  }
}

void ServedFiles::checkGuards() {
  constexpr long forbidden = 403;
  constexpr long missing = 404;
  constexpr long gone = 410;
  constexpr int past = -60;
  const std::string name = versionFileName;
  expectRefusal({forbidden}, "a link without a signature",
                fmt::format("https://{}{}{}", values_.linksHost, scriptedPath, name));
  expectRefusal({forbidden}, "a link signed with another secret",
                linkTo(name, linkSeconds, "not-" + values_.linkSecret));
  expectRefusal({missing, forbidden, gone}, "a name that does not exist",
                linkTo("VestRUM-0.script", linkSeconds, values_.linkSecret));
  expectRefusal({gone}, "a link that has expired", linkTo(name, past, values_.linkSecret));
}

void ServedFiles::checkDate(const std::string& name) {
  constexpr long found = 200;
  const HttpResult result = ask(urlOf(name), "HEAD");
  const auto* const response = std::get_if<HttpResponse>(&result);
  if (response == nullptr || response->status != found) return;
  const auto file = here_.container.parent_path().parent_path() / name;
  const std::string date = httpDate(dateOf(file));
  const std::string dated = response->header("last-modified").value_or("");
  const std::string length = response->header("content-length").value_or("");
  if (dated != date) {
    findings_.damage(
        fmt::format("{} is dated {}, and here {}: copy it with its date", name, dated, date));
  }
  if (length != std::to_string(sizeOf(file))) {
    findings_.damage(
        fmt::format("{} is announced with {} bytes, which is not its length here", name, length));
  }
}

std::optional<std::string> ServedFiles::read(const std::string& name) const {
  if (sameAsHere_.contains(name)) return here_.read(name);
  const auto found = other_.find(name);
  return found == other_.end() ? std::nullopt : std::optional(found->second);
}

}  // namespace tarnwick::publisher
