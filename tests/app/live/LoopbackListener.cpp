#include "LoopbackListener.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>

namespace vorna::app::testing {

LoopbackListener::LoopbackListener() {
  socket_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = 0;
  socklen_t length = sizeof address;
  if (socket_ < 0 || ::bind(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
      ::listen(socket_, 16) != 0 ||
      ::getsockname(socket_, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
    throw std::runtime_error("cannot listen on 127.0.0.1");
  }
  port_ = ntohs(address.sin_port);
  thread_ = std::thread([this] {
    while (!stopping_.load()) {
      pollfd waiting{socket_, POLLIN, 0};
      if (::poll(&waiting, 1, 50) == 1) {
        int accepted = ::accept4(socket_, nullptr, nullptr, SOCK_CLOEXEC);
        if (accepted >= 0) {
          connections_.fetch_add(1);
          ::close(accepted);
        }
      }
    }
  });
}

LoopbackListener::~LoopbackListener() {
  stopping_.store(true);
  thread_.join();
  ::close(socket_);
}

}  // namespace vorna::app::testing
