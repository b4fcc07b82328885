// Networks of this program's own. In each of them a whole device finds its broker and its store on the ports where it
// looks for them, so that many devices, or many runs of the tests, go side by side on one machine. None has a name: a
// network vanishes with the last process and the last descriptor that holds it, however those end.
#pragma once

#include <string>
#include <utility>

namespace desk {

class Network {
 public:
  Network() = default;  // none: wherever the program is
  ~Network();
  Network(Network&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
  Network& operator=(Network&& other) noexcept;

  // A fresh one, with nothing but its loopback interface. On failure problem says what is missing.
  bool Make(std::string& problem);

  // For a process that is about to become another program.
  bool Enter() const;

  // For as long as this lives, what the thread opens belongs to the network.
  class Inside {
   public:
    explicit Inside(const Network* network);  // nullptr: wherever the program is
    ~Inside();
    Inside(const Inside&) = delete;
    Inside& operator=(const Inside&) = delete;

   private:
    int back_ = -1;
  };

  // Runs `ip -batch` with these lines in it.
  bool Arrange(const std::string& lines, std::string& problem) const;

  // What `ip` can call it by, as long as this lives.
  std::string Path() const;

 private:
  int descriptor_ = -1;
};

// Moves this program for good into a network of its own, without root's rights also into a user namespace. To be called
// before it has threads. On failure problem says what is missing.
bool EnterOwnNetwork(std::string& problem);

// The wires of a site: a bridge where the hub is, and a cable from each device's network into it. Device 0 is the hub.
class SiteWires {
 public:
  // The bridge is made in the network that the program is in.
  bool Start(std::string& problem);

  bool Join(int device, const Network& network, std::string& problem);
  bool Pull(int device);  // its cable
  bool Plug(int device);

  static std::string Address(int device);  // of 198.18.0.0/15, the range for tests
};

}  // namespace desk
