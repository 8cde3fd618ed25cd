#include "transfer/http_client.hpp"

#include <curl/curl.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <functional>

#include "base/file_descriptor.hpp"
#include "base/text_rules.hpp"

namespace tarnwick {
namespace {

using Clock = std::chrono::steady_clock;

struct FreeEasy {
  void operator()(CURL* easy) const { curl_easy_cleanup(easy); }
};
struct FreeMulti {
  void operator()(CURLM* multi) const { curl_multi_cleanup(multi); }
};
struct FreeList {
  void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};

std::string lowerCase(std::string_view text) {
  std::string result(text);
  std::ranges::transform(result, result.begin(), [](char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  });
  return result;
}

}  // namespace

std::optional<std::string> HttpResponse::header(std::string_view name) const {
  const auto found = headers.find(std::string(name));
  return found == headers.end() ? std::nullopt : textFromUtf8(found->second);
}

struct HttpClient::Session {
  Session() {
    curl_global_init(CURL_GLOBAL_DEFAULT);
    easy.reset(curl_easy_init());
    multi.reset(curl_multi_init());
  }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;
  ~Session() {
    easy.reset();
    multi.reset();
    curl_global_cleanup();
  }

  std::unique_ptr<CURL, FreeEasy> easy;
  std::unique_ptr<CURLM, FreeMulti> multi;  ///< keeps the connections between requests
};

namespace {

/// One request on its way. Bytes of the body go to `takeBody`, which says whether it took them.
class Exchange {
 public:
  using TakeBody = std::function<bool(std::string_view)>;

  Exchange(CURL* easy, CURLM* multi, const HttpRequest& request, TakeBody takeBody)
      : easy_(easy),
        multi_(multi),
        url_(request.url),
        idleTimeout_(request.idleTimeout),
        takeBody_(std::move(takeBody)) {
    setAddressAndMethod(request);
    setPolicy(request);
    setReceivers();
    started_ = curl_multi_add_handle(multi_, easy_) == CURLM_OK;
  }
  Exchange(const Exchange&) = delete;
  Exchange& operator=(const Exchange&) = delete;
  ~Exchange() { stop(); }

  [[nodiscard]] bool isStarted() const { return started_; }
  [[nodiscard]] bool isDone() const { return result_.has_value(); }
  [[nodiscard]] bool hasSucceeded() const { return result_ == CURLE_OK; }
  [[nodiscard]] const HttpResponse& response() const { return response_; }

  [[nodiscard]] HttpError error() const {
    const char* const text =
        errorText_.front() != '\0' ? errorText_.data() : curl_easy_strerror(*result_);
    return {.description = text, .url = url_};
  }

  void runFor(std::chrono::milliseconds slice) {
    int running = 0;
    curl_multi_perform(multi_, &running);
    takeResult();
    if (isDone()) return;
    if (Clock::now() - lastActivity_ >= idleTimeout_) {
      result_ = CURLE_OPERATION_TIMEDOUT;
      return;
    }
    curl_multi_poll(multi_, nullptr, 0, static_cast<int>(slice.count()), nullptr);
  }

 private:
  template <typename Value>
  void set(CURLoption option, Value value) {
    curl_easy_setopt(easy_, option, value);
  }

  void setAddressAndMethod(const HttpRequest& request) {
    set(CURLOPT_URL, request.url.c_str());
    set(CURLOPT_PROTOCOLS_STR, "http,https");
    set(CURLOPT_FOLLOWLOCATION, 1L);
    set(CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
    set(CURLOPT_MAXREDIRS, 16L);
    set(CURLOPT_NOBODY, request.method == "HEAD" ? 1L : 0L);
    // The blank at the end of our user agents is no legal header value in HTTP/2.
    set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
    set(CURLOPT_USERAGENT, request.userAgent.c_str());
    // A cache on the way must not answer for the origin.
    headers_.reset(curl_slist_append(nullptr, "Cache-Control: no-cache"));
    curl_slist_append(headers_.get(), "Pragma: no-cache");
    set(CURLOPT_HTTPHEADER, headers_.get());
  }

  void setPolicy(const HttpRequest& request) {
    // Lets curl try a host's other addresses in good time; the limit itself is ours.
    set(CURLOPT_CONNECTTIMEOUT, static_cast<long>(request.idleTimeout.count()));
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

  static std::size_t takeHeaderLine(const char* bytes, std::size_t, std::size_t count,
                                    void* exchange) {
    auto& self = *static_cast<Exchange*>(exchange);
    self.lastActivity_ = Clock::now();
    const std::string_view line(bytes, count);
    // Interim answers and redirects come first; only the last set of headers is the response's.
    if (line.starts_with("HTTP/")) self.response_.headers.clear();
    const std::size_t colon = line.find(':');
    if (colon != std::string_view::npos) {
      self.response_.headers.insert_or_assign(
          lowerCase(line.substr(0, colon)),
          std::string(stripped(line.substr(colon + 1), " \t\r\n")));
    }
    return count;
  }

  static std::size_t takeBodyBytes(const char* bytes, std::size_t, std::size_t count,
                                   void* exchange) {
    auto& self = *static_cast<Exchange*>(exchange);
    self.lastActivity_ = Clock::now();
    self.readStatus();
    return self.takeBody_({bytes, count}) ? count : CURL_WRITEFUNC_ERROR;
  }

  void readStatus() { curl_easy_getinfo(easy_, CURLINFO_RESPONSE_CODE, &response_.status); }

  void takeResult() {
    int waiting = 0;
    while (const CURLMsg* const message = curl_multi_info_read(multi_, &waiting)) {
      if (message->msg == CURLMSG_DONE) result_ = message->data.result;
    }
    if (isDone()) readStatus();
  }

  void stop() {
    if (started_) curl_multi_remove_handle(multi_, easy_);
    curl_easy_reset(easy_);  // it still points into this exchange
  }

  CURL* easy_;
  CURLM* multi_;
  std::string url_;
  std::chrono::seconds idleTimeout_;
  TakeBody takeBody_;
  std::unique_ptr<curl_slist, FreeList> headers_;
  std::array<char, CURL_ERROR_SIZE> errorText_{};
  HttpResponse response_;
  Clock::time_point lastActivity_ = Clock::now();
  std::optional<CURLcode> result_;
  bool started_ = false;
};

/// The file that a download fills. It's made when the first byte comes, or at the finish of an
/// empty body, and is gone again unless it was completed.
class DestinationFile {
 public:
  explicit DestinationFile(std::filesystem::path path) : path_(std::move(path)) {}
  DestinationFile(const DestinationFile&) = delete;
  DestinationFile& operator=(const DestinationFile&) = delete;
  ~DestinationFile() {
    if (file_.isOpen() && !complete_) ::unlink(path_.c_str());
  }

  bool append(std::string_view bytes) { return open() && writeFully(file_.get(), bytes); }

  bool complete() {
    complete_ = open();
    return complete_;
  }

 private:
  bool open() {
    if (file_.isOpen()) return true;
    // Made anew: a link that somebody left under this name is not followed.
    ::unlink(path_.c_str());
    file_.reset(::open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644));
    return file_.isOpen();
  }

  std::filesystem::path path_;
  FileDescriptor file_;
  bool complete_ = false;
};

class FileDownload final : public HttpDownload {
 public:
  FileDownload(CURL* easy, CURLM* multi, const HttpRequest& request,
               const std::filesystem::path& destination, HttpDownloadEvents& events)
      : events_(events),
        destination_(destination),
        exchange_(easy, multi, request, [this](std::string_view bytes) { return take(bytes); }) {}

  [[nodiscard]] bool isStarted() const { return exchange_.isStarted(); }

  void runFor(std::chrono::milliseconds slice) override {
    exchange_.runFor(slice);
    if (!exchange_.isDone()) return;
    if (!exchange_.hasSucceeded()) {
      events_.downloadDidFailWithError(exchange_.error());
      return;
    }
    announceResponse();
    if (destination_.complete()) {
      events_.downloadDidFinish();
    } else {
      events_.downloadDidFailWithError(
          {.description = curl_easy_strerror(CURLE_WRITE_ERROR), .url = exchange_.error().url});
    }
  }

 private:
  bool take(std::string_view bytes) {
    announceResponse();
    if (!destination_.append(bytes)) return false;
    events_.downloadDidReceiveDataOfLength(bytes.size());
    return true;
  }

  void announceResponse() {
    if (!announced_) events_.downloadDidReceiveResponse(exchange_.response());
    announced_ = true;
  }

  HttpDownloadEvents& events_;
  DestinationFile destination_;
  Exchange exchange_;
  bool announced_ = false;
};

}  // namespace

HttpClient::HttpClient() : session_(std::make_unique<Session>()) {}

HttpClient::~HttpClient() = default;

std::variant<HttpResponse, HttpError> HttpClient::sendSynchronousRequest(
    const HttpRequest& request) {
  constexpr std::chrono::milliseconds slice(1000);
  std::string body;
  Exchange exchange(session_->easy.get(), session_->multi.get(), request,
                    [&body](std::string_view bytes) {
                      if (body.size() + bytes.size() > synchronousBodyLimit) return false;
                      body += bytes;
                      return true;
                    });
  if (!exchange.isStarted()) return HttpError{"The request could not be made", request.url};
  while (!exchange.isDone()) exchange.runFor(slice);
  if (!exchange.hasSucceeded()) return exchange.error();
  HttpResponse response = exchange.response();
  response.body = std::move(body);
  return response;
}

std::optional<std::string> HttpClient::fetchText(const HttpRequest& request) {
  const auto result = sendSynchronousRequest(request);
  const auto* const response = std::get_if<HttpResponse>(&result);
  return response != nullptr ? textFromUtf8(response->body) : std::nullopt;
}

std::unique_ptr<HttpDownload> HttpClient::beginDownload(const HttpRequest& request,
                                                        const std::filesystem::path& destination,
                                                        HttpDownloadEvents& events) {
  auto download = std::make_unique<FileDownload>(session_->easy.get(), session_->multi.get(),
                                                 request, destination, events);
  if (!download->isStarted()) return nullptr;
  return download;
}

}  // namespace tarnwick
