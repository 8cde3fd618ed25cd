#pragma once

#include <arpa/inet.h>
#include <fmt/format.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <atomic>
#include <csignal>
#include <deque>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include "base/file_descriptor.hpp"

namespace tarnwick::testbed {

struct Answer {
  std::string bytes;
  bool closes = true;  ///< the connection is closed after it
};

/// A server for programs that contain their own client. It gives each request, on any connection,
/// the next of its answers, byte for byte; without an answer left, it closes the connection.
/// It must outlive its client.
class LoopbackServer {
 public:
  /// Closes a connection that brings no request for `patience` milliseconds; -1 waits without
  /// limit.
  explicit LoopbackServer(std::deque<Answer> answers, int patience = -1)
      : answers_(std::move(answers)), patience_(patience) {
    std::signal(SIGPIPE, SIG_IGN);
    address_.sin_family = AF_INET;
    address_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address_;
    auto* const generic = reinterpret_cast<sockaddr*>(&address_);
    ::bind(listener_.get(), generic, length);
    ::listen(listener_.get(), 8);
    ::getsockname(listener_.get(), generic, &length);
    thread_ = std::thread([this] { serve(); });
  }
  LoopbackServer(const LoopbackServer&) = delete;
  LoopbackServer& operator=(const LoopbackServer&) = delete;
  ~LoopbackServer() {
    ended_ = true;
    const FileDescriptor knock(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    ::connect(knock.get(), reinterpret_cast<sockaddr*>(&address_), sizeof address_);
    thread_.join();
  }

  [[nodiscard]] std::string url(std::string_view path = "") const {
    return fmt::format("http://127.0.0.1:{}{}", ntohs(address_.sin_port), path);
  }

  /// Replaces the answers that are left.
  void setAnswers(std::deque<Answer> answers) {
    const std::lock_guard lock(mutex_);
    answers_ = std::move(answers);
  }

  /// The latest request.
  [[nodiscard]] std::string request() {
    const std::lock_guard lock(mutex_);
    return request_;
  }

 private:
  void serve() {
    while (true) {
      const FileDescriptor connection(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
      if (ended_) return;
      while (answerOne(connection.get())) continue;
    }
  }

  /// Returns false when the connection is to be closed. Requests are so short that one read gets
  /// all of one.
  bool answerOne(int connection) {
    pollfd asked{.fd = connection, .events = POLLIN, .revents = 0};
    std::array<char, 8192> bytes;
    const ssize_t count =
        ::poll(&asked, 1, patience_) == 1 ? readSome(connection, bytes) : ssize_t{0};
    if (count <= 0) return false;
    const Answer answer = answerTo({bytes.data(), static_cast<std::size_t>(count)});
    return writeFully(connection, answer.bytes) && !answer.closes;
  }

  Answer answerTo(std::string_view request) {
    const std::lock_guard lock(mutex_);
    request_ = request;
    if (answers_.empty()) return {};
    Answer answer = std::move(answers_.front());
    answers_.pop_front();
    return answer;
  }

  std::mutex mutex_;
  std::deque<Answer> answers_;
  std::string request_;
  int patience_;
  FileDescriptor listener_{::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
  sockaddr_in address_{};
  std::atomic<bool> ended_ = false;
  std::thread thread_;
};

}  // namespace tarnwick::testbed
