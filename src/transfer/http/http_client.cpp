#include "transfer/http/http_client.hpp"

#include <curl/curl.h>

#include <algorithm>
#include <array>
#include <functional>

#include "base/termination_signals.hpp"
#include "base/text_rules.hpp"
#include "transfer/http/answer_limits.hpp"
#include "transfer/http/authorities.hpp"
#include "transfer/http/destination_file.hpp"

namespace tarnwick {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

template <auto free>
struct FreeBy {
  void operator()(auto* handle) const { free(handle); }
};

const char* textOrNull(const std::optional<std::string>& text) {
  return text ? text->c_str() : nullptr;
}

Authorities builtInAuthorities() {
  const auto text = [](const char* path) {
    return path != nullptr ? std::optional<std::string>(path) : std::nullopt;
  };
  const auto* const built = curl_version_info(CURLVERSION_NOW);
  return {.bundle = text(built->cainfo), .folder = text(built->capath)};
}

/// What the requests of a client share. The client's session must outlive it.
struct Shared {
  CURLM* multi;
  CURLSH* share;
  const Authorities& authorities;
};

}  // namespace

struct HttpClient::Session {
  Session() {
    curl_global_init(CURL_GLOBAL_DEFAULT);
    multi.reset(curl_multi_init());
    share.reset(curl_share_init());
    curl_share_setopt(share.get(), CURLSHOPT_SHARE, CURL_LOCK_DATA_SSL_SESSION);
    authorities = chooseAuthorities(builtInAuthorities());
  }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;
  ~Session() {
    multi.reset();
    share.reset();
    curl_global_cleanup();
  }

  [[nodiscard]] Shared shared() const { return {multi.get(), share.get(), authorities}; }

  std::unique_ptr<CURLM, FreeBy<curl_multi_cleanup>>
      multi;  ///< keeps connections and names between requests
  std::unique_ptr<CURLSH, FreeBy<curl_share_cleanup>> share;  ///< keeps the TLS sessions
  Authorities authorities;
};

namespace {

/// One request on its way. Bytes of the body go to `takeBody`, which says whether it took them, and
/// none at the end, so that it is called for an empty body too.
class Exchange {
 public:
  using TakeBody = std::function<bool(const HttpResponse&, std::string_view)>;

  Exchange(const Shared& shared, const HttpRequest& request, const AnswerLimits& limits,
           const TakeBody& takeBody)
      : multi_(shared.multi), request_(request), limits_(limits), takeBody_(takeBody) {
    if (!easy_) return;
    set(CURLOPT_SHARE, shared.share);
    setAddressAndMethod();
    setAuthorities(shared.authorities);
    setWhatTheKitAsksFor();
    setPolicy();
    setReceivers();
    setWatch();
  }
  Exchange(const Exchange&) = delete;
  Exchange& operator=(const Exchange&) = delete;
  ~Exchange() = default;

  /// Takes everything up to the end of the connection for the body, whatever its declared length.
  void readToEndOfConnection() {
    set(CURLOPT_IGNORE_CONTENT_LENGTH, 1L);
    curl_slist_append(headers_.get(), "Connection: close");
  }

  void run() {
    wasMade_ = easy_ && curl_multi_add_handle(multi_, easy_.get()) == CURLM_OK;
    if (!wasMade_) fail(CURLE_FAILED_INIT, "The request could not be made");
    while (!result_) {
      perform();
      takeResult();
      if (!result_ && !isWithinLimits()) result_ = CURLE_ABORTED_BY_CALLBACK;
      if (!result_) waitForLife();
    }
    if (wasMade_) curl_multi_remove_handle(multi_, easy_.get());
  }

  [[nodiscard]] bool hasUnreadableHeaders() const {
    return result_ == CURLE_WEIRD_SERVER_REPLY && !headersAreWhole_;
  }

  [[nodiscard]] HttpResult result() const {
    if (result_ == CURLE_OK) return response_;
    return HttpError{.description = description(),
                     .url = failingUrl(),
                     .requestWasMade = wasMade_,
                     .failure = kindOfFailure()};
  }

 private:
  void perform() {
    // The resolver is a thread. No termination signal may ever be handled there.
    const TerminationDelay whileThreadsMayStart;
    int running = 0;
    curl_multi_perform(multi_, &running);
  }

  template <typename Value>
  void set(CURLoption option, Value value) {
    curl_easy_setopt(easy_.get(), option, value);
  }

  void setAddressAndMethod() {
    set(CURLOPT_URL, request_.url.c_str());
    set(CURLOPT_PROTOCOLS_STR, "http,https");
    set(CURLOPT_FOLLOWLOCATION, 1L);
    set(CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
    set(CURLOPT_MAXREDIRS, 16L);
    set(CURLOPT_NOBODY, request_.method == "HEAD" ? 1L : 0L);
    // The blank at the end of our user agents is no legal header value in HTTP/2.
    constexpr long version = CURL_HTTP_VERSION_1_1;
    set(CURLOPT_HTTP_VERSION, version);
    set(CURLOPT_USERAGENT, request_.userAgent.c_str());
    // A cache on the way must not answer for the origin.
    headers_.reset(curl_slist_append(nullptr, "Cache-Control: no-cache"));
    curl_slist_append(headers_.get(), "Pragma: no-cache");
    // Signatures are over the file itself. As an option of libcurl's it would also decode.
    curl_slist_append(headers_.get(), "Accept-Encoding: identity");
    set(CURLOPT_HTTPHEADER, headers_.get());
  }

  void setAuthorities(const Authorities& authorities) {
    const bool areGiven = !request_.authorities.empty();
    set(CURLOPT_CAINFO, areGiven ? request_.authorities.c_str() : textOrNull(authorities.bundle));
    if (!areGiven) set(CURLOPT_CAPATH, textOrNull(authorities.folder));
  }

  void setWhatTheKitAsksFor() {
    for (const std::string& place : request_.connectTo) {
      if (!connectTo_) {
        connectTo_.reset(curl_slist_append(nullptr, place.c_str()));
      } else {
        curl_slist_append(connectTo_.get(), place.c_str());
      }
    }
    if (connectTo_) set(CURLOPT_CONNECT_TO, connectTo_.get());
    if (request_.totalTimeout) {
      set(CURLOPT_TIMEOUT_MS, static_cast<long>(request_.totalTimeout->count()));
    }
    constexpr long http2 = CURL_HTTP_VERSION_2TLS;
    if (request_.http2) set(CURLOPT_HTTP_VERSION, http2);
  }

  void setPolicy() {
    grantTimeToConnect();
    if (request_.method != "HEAD") {
      set(CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(limits_.largestBody()));
    }
    set(CURLOPT_NOSIGNAL, 1L);
    set(CURLOPT_QUICK_EXIT, 1L);  // a name server that does not answer must not outlast the limit
    set(CURLOPT_SSL_VERIFYPEER, 1L);
    set(CURLOPT_SSL_VERIFYHOST, 2L);
    set(CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
  }

  void setReceivers() {
    set(CURLOPT_ERRORBUFFER, errorText_.data());
    set(CURLOPT_HEADERFUNCTION, &Exchange::takeHeaderLine);
    set(CURLOPT_HEADERDATA, this);
    set(CURLOPT_WRITEFUNCTION, &Exchange::takeBodyBytes);
    set(CURLOPT_WRITEDATA, this);
  }

  /// Chunk extensions, ignored bodies and what a proxy says first are shown to no receiver.
  void setWatch() {
    set(CURLOPT_VERBOSE, 1L);
    set(CURLOPT_DEBUGFUNCTION, &Exchange::countReceived);
    set(CURLOPT_DEBUGDATA, this);
    set(CURLOPT_NOPROGRESS, 0L);
    set(CURLOPT_XFERINFOFUNCTION, &Exchange::mustEnd);
    set(CURLOPT_XFERINFODATA, this);
  }

  static int countReceived(CURL*, curl_infotype kind, char*, std::size_t count, void* exchange) {
    if (kind == CURLINFO_HEADER_IN || kind == CURLINFO_DATA_IN || kind == CURLINFO_SSL_DATA_IN) {
      static_cast<Exchange*>(exchange)->limits_.countReceived(count);
    }
    return 0;
  }

  static int mustEnd(void* exchange, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
    return static_cast<Exchange*>(exchange)->isWithinLimits() ? 0 : 1;
  }

  bool isWithinLimits() {
    if (const auto why = limits_.exceeded(Clock::now())) failure_ = *why;
    return failure_.empty();
  }

  static std::size_t takeHeaderLine(const char* bytes, std::size_t, std::size_t count,
                                    void* exchange) {
    auto* const self = static_cast<Exchange*>(exchange);
    self->limits_.countHeaderLine(count);
    self->noteHeaderLine({bytes, count});
    return self->isWithinLimits() ? count : CURL_WRITEFUNC_ERROR;
  }

  void noteHeaderLine(std::string_view line) {
    lastLife_ = Clock::now();
    // Interim answers and redirects come first; only the last set of headers is the response's.
    if (line.starts_with("HTTP/") && (!headersAreWhole_ || wasRedirected())) {
      response_.headers.clear();
      headersAreWhole_ = false;
    }
    if (headersAreWhole_) return;  // a trailer, behind the body
    if (line == "\r\n" || line == "\n") return endHeaders();
    response_.addHeaderLine(line);
  }

  /// Whether another request was made since the last whole set of headers. If not, what looks like
  /// the first line of an answer is a trailer.
  bool wasRedirected() {
    const long before = redirects_;
    curl_easy_getinfo(easy_.get(), CURLINFO_REDIRECT_COUNT, &redirects_);
    return redirects_ != before;
  }

  void endHeaders() {
    constexpr long firstFinalStatus = 200;
    curl_easy_getinfo(easy_.get(), CURLINFO_RESPONSE_CODE, &response_.status);
    long version = 0;
    curl_easy_getinfo(easy_.get(), CURLINFO_HTTP_VERSION, &version);
    response_.cameOverHttp2 = version == CURL_HTTP_VERSION_2_0;
    headersAreWhole_ = response_.status >= firstFinalStatus;
    begun_ = lastLife_;  // of the request to which a redirect leads
    grantTimeToConnect();
  }

  static std::size_t takeBodyBytes(const char* bytes, std::size_t, std::size_t count,
                                   void* exchange) {
    return static_cast<Exchange*>(exchange)->take({bytes, count}) ? count : CURL_WRITEFUNC_ERROR;
  }

  bool take(std::string_view bytes) {
    lastLife_ = Clock::now();
    limits_.countBody(bytes.size(), lastLife_);
    if (!isWithinLimits()) return false;
    const TerminationWindow whileOutputMayWait;
    return takeBody_(response_, bytes);
  }

  void takeResult() {
    int waiting = 0;
    while (const CURLMsg* const message = curl_multi_info_read(multi_, &waiting)) {
      if (message->msg == CURLMSG_DONE) result_ = message->data.result;
    }
    // libcurl takes this for an answer without a body.
    if (result_ == CURLE_OK && !headersAreWhole_) {
      fail(CURLE_RECV_ERROR, "The connection ended within the headers");
    }
    if (result_ == CURLE_OK && !takeBody_(response_, {})) {
      fail(CURLE_WRITE_ERROR, curl_easy_strerror(CURLE_WRITE_ERROR));
    }
  }

  /// Waits until something arrives, or libcurl may have something else to do.
  void waitForLife() {
    // libcurl does not ask to be called when it is time for a host's next address.
    constexpr milliseconds longestWait(1000);
    const auto left = lastLife_ + request_.idleTimeout - Clock::now();
    if (left <= Clock::duration::zero()) {
      fail(CURLE_OPERATION_TIMEDOUT, curl_easy_strerror(CURLE_OPERATION_TIMEDOUT));
      return;
    }
    const auto wait = std::min(std::chrono::ceil<milliseconds>(left), longestWait);
    // Counts connections made, bytes of a handshake and halves of lines, of which libcurl itself
    // tells nothing.
    int readySockets = 0;
    curl_multi_poll(multi_, nullptr, 0, static_cast<int>(wait.count()), &readySockets);
    if (readySockets == 0) return;
    lastLife_ = Clock::now();
    grantTimeToConnect();
  }

  /// libcurl's own limit for a connection is made to end where ours does. It is needed for what
  /// libcurl does with it: to give each of a host's addresses its share of the time.
  void grantTimeToConnect() {
    const auto untilLimit = lastLife_ + request_.idleTimeout - begun_;
    set(CURLOPT_CONNECTTIMEOUT_MS,
        static_cast<long>(std::chrono::ceil<milliseconds>(untilLimit).count()));
  }

  void fail(CURLcode result, const char* why) {
    result_ = result;
    failure_ = why;
  }

  [[nodiscard]] HttpFailure kindOfFailure() const {
    switch (result_.value_or(CURLE_OK)) {
      case CURLE_PEER_FAILED_VERIFICATION:
      case CURLE_SSL_CACERT_BADFILE:
        return HttpFailure::certificate;
      case CURLE_COULDNT_RESOLVE_HOST:
        return HttpFailure::name;
      default:
        return HttpFailure::other;
    }
  }

  [[nodiscard]] std::string description() const {
    if (!failure_.empty()) return failure_;
    return shownText(errorText_.front() != '\0' ? errorText_.data()
                                                : curl_easy_strerror(result_.value_or(CURLE_OK)));
  }

  [[nodiscard]] std::string failingUrl() const {
    const char* url = nullptr;
    if (easy_) curl_easy_getinfo(easy_.get(), CURLINFO_EFFECTIVE_URL, &url);
    return url != nullptr && *url != '\0' ? url : request_.url;
  }

  // A new one for each request: libcurl 7.88 reads freed memory when an answer on a used handle
  // begins with a header line that continues no other.
  std::unique_ptr<CURL, FreeBy<curl_easy_cleanup>> easy_{curl_easy_init()};
  CURLM* multi_;
  const HttpRequest& request_;
  AnswerLimits limits_;
  const TakeBody& takeBody_;
  std::unique_ptr<curl_slist, FreeBy<curl_slist_free_all>> headers_;
  std::unique_ptr<curl_slist, FreeBy<curl_slist_free_all>> connectTo_;
  std::array<char, CURL_ERROR_SIZE> errorText_{};
  std::string failure_;  ///< what failed it where that was not libcurl
  HttpResponse response_;
  Clock::time_point begun_ = Clock::now();
  Clock::time_point lastLife_ = begun_;
  std::optional<CURLcode> result_;
  long redirects_ = 0;
  bool headersAreWhole_ = false;
  bool wasMade_ = false;
};

HttpResult exchange(const Shared& shared, const HttpRequest& request, const AnswerLimits& limits,
                    const Exchange::TakeBody& takeBody) {
  Exchange first(shared, request, limits, takeBody);
  first.run();
  if (!first.hasUnreadableHeaders()) return first.result();
  // Above all a length that is no number, with which libcurl goes no further.
  Exchange second(shared, request, limits, takeBody);
  second.readToEndOfConnection();
  second.run();
  return second.result();
}

}  // namespace

HttpClient::HttpClient(std::uint64_t largestDownload)
    : session_(std::make_unique<Session>()), largestDownload_(largestDownload) {}

HttpClient::~HttpClient() = default;

HttpResult HttpClient::sendSynchronousRequest(const HttpRequest& request) {
  std::string body;
  HttpResult result =
      exchange(session_->shared(), request,
               AnswerLimits(AnswerKind::text, request.largestBody.value_or(largestText)),
               [&body](const HttpResponse&, std::string_view bytes) {
                 body += bytes;
                 return true;
               });
  if (auto* const response = std::get_if<HttpResponse>(&result)) response->body = std::move(body);
  return result;
}

HttpResult HttpClient::download(const HttpRequest& request,
                                const std::optional<std::filesystem::path>& destination,
                                const DownloadProgress& progress) {
  DestinationFile file(destination);
  bool announced = false;
  HttpResult result =
      exchange(session_->shared(), request, AnswerLimits(AnswerKind::file, largestDownload_),
               [&](const HttpResponse& response, std::string_view bytes) {
                 if (!announced) progress.didReceiveResponse(response);
                 announced = true;
                 if (!file.append(bytes)) return false;
                 if (!bytes.empty()) progress.didReceiveDataOfLength(bytes.size());
                 return true;
               });
  if (std::holds_alternative<HttpResponse>(result)) file.complete();
  return result;
}

}  // namespace tarnwick
