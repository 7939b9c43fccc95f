// HTTP as its bytes, for tests of a server.
#ifndef KELDA_TESTS_COCKPIT_HTTP_CONNECTION_H_
#define KELDA_TESTS_COCKPIT_HTTP_CONNECTION_H_

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <string>

namespace kelda::tools {

// One connection to the loopback interface.
class HttpConnection {
 public:
  explicit HttpConnection(int port) : socket_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
  }
  ~HttpConnection() { close(socket_); }
  HttpConnection(const HttpConnection&) = delete;
  HttpConnection& operator=(const HttpConnection&) = delete;

  void Send(const std::string& bytes) const {
    send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
  }
  // Until the server closes.
  std::string ReadAll() {
    while (ReadMore()) {
    }
    return read_;
  }
  // Whether `part` comes within 20 s; what was read until then is forgotten.
  bool ReadUntil(const std::string& part) {
    std::size_t at = 0;
    while ((at = read_.find(part)) == std::string::npos && ReadMore()) {
    }
    if (at == std::string::npos) {
      return false;
    }
    read_.erase(0, at + part.size());
    return true;
  }
  // The rest of the line that comes next.
  std::string ReadLine() {
    while (read_.find('\n') == std::string::npos && ReadMore()) {
    }
    return read_.substr(0, read_.find('\n'));
  }

 private:
  bool ReadMore() {
    constexpr int kPatienceMs = 20'000;
    pollfd waiting{socket_, POLLIN, 0};
    char bytes[4096];
    const ssize_t count =
        poll(&waiting, 1, kPatienceMs) > 0 ? recv(socket_, bytes, sizeof(bytes), 0) : 0;
    read_.append(bytes, static_cast<std::size_t>(count > 0 ? count : 0));
    return count > 0;
  }

  const int socket_;
  std::string read_;
};

}  // namespace kelda::tools

#endif  // KELDA_TESTS_COCKPIT_HTTP_CONNECTION_H_
