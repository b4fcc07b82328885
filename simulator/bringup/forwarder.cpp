#include "bringup/forwarder.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

namespace desk {
namespace {

constexpr int kWaiting = 64;

sockaddr_in AddressOf(const char* address, int port) {
  sockaddr_in to{};
  to.sin_family = AF_INET;
  to.sin_port = htons(static_cast<uint16_t>(port));
  inet_pton(AF_INET, address, &to.sin_addr);
  return to;
}

// False when the other end is gone for good.
bool Flush(int descriptor, std::string& unsent) {
  while (!unsent.empty()) {
    const ssize_t sent = send(descriptor, unsent.data(), unsent.size(), MSG_NOSIGNAL);
    if (sent <= 0) return errno == EAGAIN || errno == ENOTCONN;
    unsent.erase(0, static_cast<size_t>(sent));
  }
  return true;
}

}  // namespace

Forwarder::~Forwarder() {
  while (!links_.empty()) Close(links_.begin()->second);
  if (listener_ < 0) return;
  loop_.Unwatch(listener_);
  close(listener_);
}

bool Forwarder::Listen(int port) {
  listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  const int yes = 1;
  setsockopt(listener_, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
  const sockaddr_in here = AddressOf("127.0.0.1", port);
  if (bind(listener_, reinterpret_cast<const sockaddr*>(&here), sizeof here) == 0 && listen(listener_, kWaiting) == 0) {
    return true;
  }
  close(listener_);
  listener_ = -1;
  return false;
}

void Forwarder::Lead(const std::string& address, int port) {
  address_ = address;
  port_ = port;
  if (listener_ >= 0) loop_.Watch(listener_, [this] { Accept(); });
}

void Forwarder::Accept() {
  const int near = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
  if (near < 0) return;
  const int far = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  const sockaddr_in to = AddressOf(address_.c_str(), port_);
  if (connect(far, reinterpret_cast<const sockaddr*>(&to), sizeof to) != 0 && errno != EINPROGRESS) {
    close(near);
    close(far);
    return;
  }
  const auto link = std::make_shared<Link>(Link{{near, ""}, {far, ""}});
  links_[near] = link;
  Watch(link, &Link::near, &Link::far);
  Watch(link, &Link::far, &Link::near);
}

void Forwarder::Watch(const std::shared_ptr<Link>& link, Side Link::*from, Side Link::*to) {
  loop_.Watch(((*link).*from).descriptor,
              [this, link, from, to] {
                Side& source = (*link).*from;
                Side& target = (*link).*to;
                if (source.descriptor < 0) return;  // closed in the same turn
                char part[16384];
                const ssize_t size = read(source.descriptor, part, sizeof part);
                if (size > 0) target.unsent.append(part, static_cast<size_t>(size));
                const bool going_on = size > 0 || (size < 0 && (errno == EAGAIN || errno == ENOTCONN));
                const bool sent = Flush(target.descriptor, target.unsent) && Flush(source.descriptor, source.unsent);
                if (!going_on || !sent) Close(link);
              },
              [link, from] { return !((*link).*from).unsent.empty(); });
}

void Forwarder::Close(const std::shared_ptr<Link>& link) {
  // Beyond its entry, which the caller's reference may be.
  const std::shared_ptr<Link> kept = link;  // NOLINT(performance-unnecessary-copy-initialization)
  links_.erase(kept->near.descriptor);
  for (Side* side : {&kept->near, &kept->far}) {
    loop_.Unwatch(side->descriptor);
    close(side->descriptor);
    side->descriptor = -1;
  }
}

}  // namespace desk
