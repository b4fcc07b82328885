// Single operations of the system, on the recording platform: no bus, no store, no clock.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>
#include <new>
#include <stdexcept>

#include "fake_platform/fake_platform.h"
#include "netpush/netpush.h"
#include "protocol/json_text.h"
#include "protocol/stored_documents.h"
#include "rs485pro/rs485pro.h"
#include "server/business_server.h"

namespace {
size_t allocations = 0;
}  // namespace

// Not inlined: the compiler would see free() beside a new that it takes for its own.
[[gnu::noinline]] void* operator new(size_t size) {
  ++allocations;
  void* const memory = malloc(size != 0 ? size : 1);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
[[gnu::noinline]] void operator delete(void* memory) noexcept { free(memory); }
[[gnu::noinline]] void operator delete(void* memory, size_t) noexcept { free(memory); }

namespace businessserver {

struct BusinessServerTestAccess {
  static void Deliver(BusinessServer& server, const _TagDpMsg* msg) {
    BusinessServer::OnDpMsgCallBack(nullptr, msg, &server);
  }
};

namespace {

void ReportAllocations(benchmark::State& state, size_t before) {
  state.counters["allocations"] =
      benchmark::Counter(static_cast<double>(allocations - before), benchmark::Counter::kAvgIterations);
}

LX_ParkingResult Space() {
  LX_ParkingResult space = {};
  strcpy(space.plate,
         "\xD4\xC1"
         "B12345");
  strcpy(space.space_name, "A-001");
  space.valid = space.second_flag = space.space_status = 1;
  return space;
}

void Frame(benchmark::State& state) {
  ResetFake();
  Rs485ProBuild builder;
  if (!builder.SetRs485Str(std::string(DefaultDocument(kRs485pro.default_index)))) state.SkipWithError("refused");
  const LX_ParkingResult space = Space();
  unsigned length = 0;
  const size_t before = allocations;
  for (auto _ : state) benchmark::DoNotOptimize(builder.GetDevRs485ProData(length, 7, 30, &space));
  ReportAllocations(state, before);
  state.counters["bytes"] = length;
}
BENCHMARK(Frame);

void Push(benchmark::State& state) {
  ResetFake();
  NetPush net_push;
  const auto neighbours = static_cast<uint32_t>(state.range(0));
  for (uint32_t i = 0; i < neighbours; ++i) net_push.InsertNetList({i % 4, 0x0A000001 + i, 3, i % 4}, Json::Value());
  uint32_t next = 0;
  for (auto _ : state) {
    net_push.InsertNetList({next % 4, 0x0A000001 + next, 3, next % 4}, Json::Value());
    next = (next + 1) % neighbours;
  }
  benchmark::DoNotOptimize(net_push.Counts());
  state.SetComplexityN(state.range(0));
}
BENCHMARK(Push)->RangeMultiplier(10)->Range(10, 10000)->Complexity(benchmark::oN);

Json::Value Reply() {
  Json::Value reply;
  reply["state"] = 200;
  reply["error_msg"] = "All done";
  reply["type"] = "get_rs485pro_cfg";
  ParseJson(DefaultDocument(kRs485pro.default_index), reply["body"]);
  return reply;
}

void StyledReply(benchmark::State& state) {
  const Json::Value reply = Reply();
  const size_t before = allocations;
  for (auto _ : state) benchmark::DoNotOptimize(StyledText(reply));
  ReportAllocations(state, before);
}
BENCHMARK(StyledReply);

void LibraryStyledReply(benchmark::State& state) {
  const Json::Value reply = Reply();
  const size_t before = allocations;
  for (auto _ : state) benchmark::DoNotOptimize(reply.toStyledString());
  ReportAllocations(state, before);
}
BENCHMARK(LibraryStyledReply);

// From the bus callback to the reply or the last publication, with what the platform takes to record them.
void Dispatch(benchmark::State& state, const char* type, const std::string& payload) {
  ResetFake();
  BusinessServer server;
  Fake().on_poll = [] { throw std::runtime_error("started"); };
  server.Start();
  std::vector<_TagDpMsg> buffer(2 + payload.size() / sizeof(_TagDpMsg));
  _TagDpMsg& msg = buffer[0];
  msg.type_name_len = static_cast<uint8_t>(strlen(type));
  strcpy(msg.type_name, type);
  msg.data_size = static_cast<uint32_t>(payload.size());
  memcpy(&msg + 1, payload.data(), payload.size());
  for (auto _ : state) {
    BusinessServerTestAccess::Deliver(server, &msg);
    Fake().sent.clear();
    Fake().replies.clear();
    Fake().log.clear();
  }
}

std::string ResultPayload() {
  LX_Parking_Result_Param record = {};
  for (LX_ParkingResult& space : record.spaces) space = Space();
  return std::string(reinterpret_cast<const char*>(&record), sizeof record);
}

BENCHMARK_CAPTURE(Dispatch, unknown_type, "NOBODY_KNOWS", "{}");
BENCHMARK_CAPTURE(Dispatch, live_state, kBusRequestMessage, R"({"type":"get_frame_status"})");
BENCHMARK_CAPTURE(Dispatch, reading, kBusRequestMessage, R"({"type":"get_ttyio_cfg"})");
BENCHMARK_CAPTURE(Dispatch, push, kBusNetPush, R"({"s_addr":167772161,"totle":3,"free":1,"pos":1,"cm_dev":null})");
BENCHMARK_CAPTURE(Dispatch, result, kAvsSimulatorTrigger, ResultPayload());

}  // namespace

}  // namespace businessserver

BENCHMARK_MAIN();
