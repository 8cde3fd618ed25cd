// Repeats the requests of a run for some seconds, on several threads. Every repetition opens its
// own connections, with full TLS handshakes. Checks only HTTP status and length, to cost little.
//
//     fleet_replay ADDRESS SECONDS THREADS <PLAN
//
// For each request, a plan has a line "CONNECTION HOST STATUS LENGTH" and then LENGTH bytes, the
// request as sent. Prints the number of runs, the seconds, and the bytes that one run sends and
// receives, including TLS.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/ssl.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

struct Request {
  int connection = 0;
  std::string host;
  std::string status;
  std::string text;
};

struct Totals {
  std::atomic<std::uint64_t> runs = 0;
  std::atomic<std::uint64_t> sent = 0;
  std::atomic<std::uint64_t> received = 0;
};

[[noreturn]] void giveUp(const std::string& why) {
  std::cerr << "fleet_replay: " << why << '\n';
  std::exit(1);
}

constexpr std::size_t largestRecord = 16384;
thread_local std::array<char, largestRecord> buffer;

class Connection {
 public:
  Connection(SSL_CTX* context, const sockaddr_in& address, const std::string& host, Totals& totals)
      : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)),
        tls_(SSL_new(context)),
        totals_(totals) {
    const int yes = 1;
    ::setsockopt(socket_, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
    if (::connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
      giveUp("no connection");
    }
    SSL_set_fd(tls_, socket_);
    SSL_set_tlsext_host_name(tls_, host.c_str());
    if (SSL_connect(tls_) != 1) giveUp("no handshake");
    if (SSL_session_reused(tls_) != 0) giveUp("a session was reused");
  }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  ~Connection() {
    SSL_shutdown(tls_);
    totals_.sent += BIO_number_written(SSL_get_wbio(tls_));
    totals_.received += BIO_number_read(SSL_get_rbio(tls_));
    SSL_free(tls_);
    ::close(socket_);
  }

  void ask(const Request& request) {
    if (SSL_write(tls_, request.text.data(), static_cast<int>(request.text.size())) <= 0) {
      giveUp("a request could not be sent");
    }
    std::string answer;
    std::size_t headersEnd = std::string::npos;
    while (headersEnd == std::string::npos) {
      answer.append(buffer.data(), read());
      headersEnd = answer.find("\r\n\r\n");
    }
    if (answer.compare(9, 3, request.status) != 0) giveUp("another status than in the plan");
    if (request.text.starts_with("HEAD ")) return;
    constexpr std::size_t blankLine = 4;
    std::size_t left = lengthIn(answer) + headersEnd + blankLine - answer.size();
    while (left > 0) left -= read();
  }

 private:
  std::size_t read() {
    const int count = SSL_read(tls_, buffer.data(), static_cast<int>(buffer.size()));
    if (count <= 0) giveUp("an answer was cut short");
    return static_cast<std::size_t>(count);
  }

  static std::size_t lengthIn(const std::string& headers) {
    constexpr std::string_view name = "\r\nContent-Length: ";
    const std::size_t found = headers.find(name);
    if (found == std::string::npos) giveUp("an answer has no length");
    return std::stoul(headers.substr(found + name.size()));
  }

  int socket_;
  SSL* tls_;
  Totals& totals_;
};

std::vector<Request> readPlan() {
  std::vector<Request> plan;
  Request request;
  std::size_t length = 0;
  while (std::cin >> request.connection >> request.host >> request.status >> length) {
    std::cin.ignore(1);
    request.text.resize(length);
    std::cin.read(request.text.data(), static_cast<std::streamsize>(length));
    plan.push_back(request);
  }
  return plan;
}

void run(SSL_CTX* context, const sockaddr_in& address, const std::vector<Request>& plan,
         Totals& totals) {
  std::map<int, std::unique_ptr<Connection>> connections;
  for (const Request& request : plan) {
    auto& connection = connections[request.connection];
    if (!connection) {
      connection = std::make_unique<Connection>(context, address, request.host, totals);
    }
    connection->ask(request);
  }
  ++totals.runs;
}

SSL_CTX* makeContext() {
  SSL_CTX* const context = SSL_CTX_new(TLS_client_method());
  SSL_CTX_set_session_cache_mode(context, SSL_SESS_CACHE_OFF);
  constexpr std::string_view protocol = "\x08http/1.1";
  SSL_CTX_set_alpn_protos(context, reinterpret_cast<const unsigned char*>(protocol.data()),
                          static_cast<unsigned>(protocol.size()));
  return context;
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 4) giveUp("usage: fleet_replay ADDRESS SECONDS THREADS <PLAN");
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(443);
  ::inet_pton(AF_INET, arguments[1], &address.sin_addr);
  const std::chrono::duration<double> wanted(std::atof(arguments[2]));
  const std::vector<Request> plan = readPlan();
  SSL_CTX* const context = makeContext();
  Totals totals;
  const auto start = Clock::now();
  std::vector<std::jthread> threads;
  for (int number = std::atoi(arguments[3]); number > 0; --number) {
    threads.emplace_back([&] {
      do {
        run(context, address, plan, totals);
      } while (Clock::now() - start < wanted);
    });
  }
  threads.clear();  // joins each
  const std::chrono::duration<double> taken = Clock::now() - start;
  const auto runs = static_cast<double>(totals.runs);
  std::printf("%.0f %.6f %.1f %.1f\n", runs, taken.count(), static_cast<double>(totals.sent) / runs,
              static_cast<double>(totals.received) / runs);
  SSL_CTX_free(context);
}
