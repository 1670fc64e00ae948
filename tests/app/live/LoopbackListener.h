#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>

namespace vorna::app::testing {

// A TCP listener on 127.0.0.1 that only counts connections: the witness that
// nothing left the web view. The kernel completes connections into the
// backlog by itself, so nothing has to run while the page does; they are
// counted when asked for.
class LoopbackListener {
 public:
  LoopbackListener() : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (socket_ < 0 ||
        ::bind(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(socket_, 64) != 0 ||
        ::getsockname(socket_, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
      throw std::runtime_error("cannot listen on 127.0.0.1");
    }
    port_ = ntohs(address.sin_port);
  }
  ~LoopbackListener() { ::close(socket_); }
  LoopbackListener(const LoopbackListener&) = delete;
  LoopbackListener& operator=(const LoopbackListener&) = delete;

  int port() const { return port_; }
  int connections() {
    for (int accepted; (accepted = ::accept4(socket_, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;) {
      ::close(accepted);
      ++connections_;
    }
    return connections_;
  }

 private:
  int socket_;
  int port_ = 0;
  int connections_ = 0;
};

}  // namespace vorna::app::testing
