#pragma once

#include <arpa/inet.h>
#include <fmt/format.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <atomic>
#include <csignal>
#include <cstddef>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "base/file_descriptor.hpp"

namespace tarnwick::test {

struct Answer {
  std::string bytes;
  bool closes = true;  ///< the connection ends behind it
};

/// Answers so many requests on this machine, byte for byte, whatever connection they come on. It
/// must outlive its client.
class LoopbackServer {
 public:
  explicit LoopbackServer(std::vector<Answer> answers) : answers_(std::move(answers)) {
    std::signal(SIGPIPE, SIG_IGN);
    address_.sin_family = AF_INET;
    address_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address_;
    auto* const generic = reinterpret_cast<sockaddr*>(&address_);
    ::bind(listener_.get(), generic, length);
    ::listen(listener_.get(), 1);
    ::getsockname(listener_.get(), generic, &length);
    thread_ = std::thread([this] { serve(); });
  }
  LoopbackServer(const LoopbackServer&) = delete;
  LoopbackServer& operator=(const LoopbackServer&) = delete;
  ~LoopbackServer() { end(); }

  [[nodiscard]] std::string url(std::string_view path = "/") const {
    return fmt::format("http://127.0.0.1:{}{}", ntohs(address_.sin_port), path);
  }

  /// The requests, whole, once the client is gone.
  const std::vector<std::string>& end() {
    ended_ = true;
    const FileDescriptor knock(::socket(AF_INET, SOCK_STREAM, 0));
    ::connect(knock.get(), reinterpret_cast<sockaddr*>(&address_), sizeof address_);
    if (thread_.joinable()) thread_.join();
    return requests_;
  }

 private:
  void serve() {
    FileDescriptor connection;
    for (std::size_t next = 0; next < answers_.size();) {
      if (!connection.isOpen()) connection.reset(::accept(listener_.get(), nullptr, nullptr));
      if (ended_) return;
      const bool asked = readRequest(connection.get());
      if (asked) writeFully(connection.get(), answers_[next].bytes);
      if (!asked || answers_[next].closes) connection.reset();
      if (asked) ++next;
    }
    if (connection.isOpen()) readRequest(connection.get());  // silent until the client goes
  }

  bool readRequest(int connection) {
    std::string request;
    std::array<char, 4096> buffer;
    while (!request.ends_with("\r\n\r\n")) {
      const ssize_t count = readSome(connection, buffer);
      if (count <= 0) return false;
      request.append(buffer.data(), static_cast<std::size_t>(count));
    }
    requests_.push_back(request);
    return true;
  }

  std::vector<Answer> answers_;
  std::vector<std::string> requests_;
  FileDescriptor listener_{::socket(AF_INET, SOCK_STREAM, 0)};
  sockaddr_in address_{};
  std::atomic<bool> ended_ = false;
  std::thread thread_;
};

}  // namespace tarnwick::test
