#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>

#include "publisher/findings.hpp"
#include "publisher/home.hpp"
#include "publisher/published_tree.hpp"
#include "publisher/site.hpp"
#include "transfer/http/http_client.hpp"

namespace tarnwick::publisher {

/// One server, asked as installations ask: by signed links over HTTP/1.1, with certificates
/// checked. Its answers are data: no name and no length of them decides what is written or kept.
class ServedFiles {
 public:
  /// `server` is HOST or HOST:PORT. Unless it is one of the hosts that machines know, it is asked
  /// for those. All must outlive this object.
  ServedFiles(const Home& home, const SiteValues& values, const std::string& server,
              Findings& findings);

  /// Fetches a published file, which must come with a length and a date; anything else is a damage,
  /// and the file then counts as missing.
  void fetch(const std::string& name);

  /// One request that must be refused with one of these statuses, of which the first is right.
  void expectRefusal(const std::vector<long>& wanted, const std::string& what,
                     const std::string& url);
  void checkGuards();

  /// Machines compare dates, so that servers must not differ in them.
  void checkDate(const std::string& name);

  [[nodiscard]] bool has(const std::string& name) const {
    return sameAsHere_.contains(name) || other_.contains(name);
  }
  [[nodiscard]] std::optional<std::string> read(const std::string& name) const;
  /// Whether every file that was fetched came, and is what is published here, byte for byte.
  [[nodiscard]] bool isAsHere() const { return other_.empty() && !anyMissing_; }
  [[nodiscard]] bool isAsHere(const std::string& name) const { return sameAsHere_.contains(name); }
  /// Whether something could not be had for a reason of its certificate or its name.
  [[nodiscard]] std::optional<HttpFailure> failure() const { return failure_; }

 private:
  [[nodiscard]] HttpResult ask(const std::string& url, const std::string& method = "GET",
                               bool http2 = false);
  [[nodiscard]] std::string urlOf(const std::string& name) const;
  [[nodiscard]] std::string linkTo(const std::string& name, int seconds,
                                   const std::string& secret) const;
  void noteFailure(const std::string& name, const HttpError& error);
  void noteRefusal(const std::string& name, long status);

  const SiteValues& values_;
  Findings& findings_;
  PublishedTree here_;
  HttpClient http_;
  std::vector<std::string> connectTo_;
  std::uint64_t largestBody_;
  std::set<std::string> sameAsHere_;
  std::map<std::string, std::string> other_;
  bool anyMissing_ = false;
  std::optional<HttpFailure> failure_;
};

}  // namespace tarnwick::publisher
