// Processor time of the daemon for one event, by how many neighbours there are; what the machine does besides does not
// count.
#include <algorithm>
#include <stdexcept>

#include "flow.h"
#include "measurements.h"
#include "protocol/names.h"

namespace bench {

namespace bs = businessserver;

namespace {

constexpr unsigned kNeighbours[] = {10, 100, 1000, 10000};
// A broadcast that lists more controlled devices than these does not fit into a message.
constexpr unsigned kControlled[] = {10, 100, 600};
constexpr char kFrameChangedText[] = "frame_changed";

class Growth {
 public:
  Growth(Device& device, int events) : device_(device), events_(events) {}

  // Tells the daemon of the neighbours from the first up to the last.
  void Fill(unsigned from, unsigned to) {
    RunEvents(device_, to - from, bs::kBusBroadcastMessage, kFrameChangedText,
              [&](unsigned number) { device_.bus().Publish(bs::kBusNetPush, PushText(from + number)); });
  }

  // One neighbour that reports so many controlled devices.
  void FillControlled(unsigned from, unsigned to) {
    constexpr unsigned kInOnePush = 50;
    for (unsigned first = from; first < to; first += kInOnePush) {
      std::string list = "[";
      for (unsigned i = first; i < std::min(first + kInOnePush, to); ++i) {
        list +=
            (i == first ? "" : ",") + std::string("{\"ip\":") + std::to_string(0x0B000001 + i) + ",\"tn\":1,\"fn\":1}";
      }
      RunEvents(device_, 1, bs::kBusBroadcastMessage, kFrameChangedText,
                [&](unsigned) { device_.bus().Publish(bs::kBusNetPush, PushText(0, list + "]")); });
    }
  }

  // Microseconds an event. Every push is a neighbour's that is known already.
  double Push(unsigned neighbours) {
    return Cost([&] {
      RunEvents(device_, events_, bs::kBusBroadcastMessage, kFrameChangedText,
                [&](unsigned number) { device_.bus().Publish(bs::kBusNetPush, PushText(number % neighbours)); });
    });
  }
  double Broadcast() {
    return Cost([&] {
      RunEvents(device_, events_, bs::kBusBroadcastMessage, kFrameChangedText,
                [&](unsigned) { device_.bus().Publish(bs::kHttpBroadcastMessageRoot, "{}"); });
    });
  }
  double Result() {
    return Cost([&] { RunResults(device_, events_); });
  }

 private:
  template <typename Events>
  double Cost(Events events) const {
    const double before = device_.daemon().CpuSeconds();
    events();
    return (device_.daemon().CpuSeconds() - before) / events_ * 1e6;
  }

  Device& device_;
  const int events_;
};

}  // namespace

void MeasureGrowth(Device& device, const Effort& effort, Report& report) {
  Growth growth(device, effort.growth_events);
  Table table{"Growth: processor time of the daemon, us an event", {"", "a push", "a broadcast", "a result"}, {}};
  Curve push{"a push", {}, {}}, broadcast{"a broadcast", {}, {}}, result{"a result", {}, {}};
  device.StartDaemon(LevelOneToNowhere());
  unsigned known = 0;
  uint64_t bytes_with_few = 0;
  for (const unsigned neighbours : kNeighbours) {
    growth.Fill(known, neighbours);
    known = neighbours;
    for (const auto& [curve, cost] : {std::pair(&push, growth.Push(neighbours)),
                                      std::pair(&broadcast, growth.Broadcast()), std::pair(&result, growth.Result())}) {
      curve->x.push_back(neighbours);
      curve->y.push_back(cost);
    }
    if (bytes_with_few == 0) bytes_with_few = device.daemon().PrivateBytes();
    table.rows.push_back({std::to_string(neighbours) + " neighbours", Number(push.y.back(), 1),
                          Number(broadcast.y.back(), 1), Number(result.y.back(), 1)});
  }
  const double more = static_cast<double>(device.daemon().PrivateBytes() - bytes_with_few);
  const double each = more / (kNeighbours[std::size(kNeighbours) - 1] - kNeighbours[0]);
  table.rows.push_back({"memory of one neighbour: " + Number(each, 0) + " bytes", "", "", ""});

  Curve listing{"a broadcast that lists them", {}, {}};
  device.StartDaemon(LevelOneToNowhere());
  known = 0;
  for (const unsigned controlled : kControlled) {
    growth.FillControlled(known, controlled);
    known = controlled;
    listing.x.push_back(controlled);
    listing.y.push_back(growth.Broadcast());
    table.rows.push_back({std::to_string(controlled) + " listed devices", "", Number(listing.y.back(), 1), ""});
  }
  report.Add(std::move(table));
  for (const Curve& curve : {push, broadcast, result, listing}) report.AddCurve(curve);
  device.StopDaemon();
}

}  // namespace bench
