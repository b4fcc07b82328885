// The device's message bus, as the business server uses it: subscribe to named message types, publish, answer
// requests. All functions belong to the one event-loop thread.
#pragma once

#include <cstddef>
#include <cstdint>

namespace lxconn {
class EVT_LOOP;
}

// One bus message as the bus service hands it over; the payload follows the record at offset 80 and is always
// followed by a NUL byte that data_size does not count.
struct _TagDpMsg {
  uint8_t header[3];      // the bus library's own
  uint8_t type_name_len;  // without terminator, at most 63
  char type_name[64];     // NUL-terminated, e.g. "BUS_REQUEST_MESSAGE"
  uint32_t message_id;    // handed back unchanged in a reply
  uint32_t data_size;     // bytes of payload
  uint8_t reserved[4];
};
static_assert(offsetof(_TagDpMsg, type_name_len) == 3, "fixed by the bus service");
static_assert(offsetof(_TagDpMsg, type_name) == 4, "fixed by the bus service");
static_assert(offsetof(_TagDpMsg, message_id) == 68, "fixed by the bus service");
static_assert(offsetof(_TagDpMsg, data_size) == 72, "fixed by the bus service");
static_assert(sizeof(_TagDpMsg) == 80, "the payload starts at offset 80");

inline const char* DpMsgData(const _TagDpMsg* msg) { return reinterpret_cast<const char*>(msg + 1); }

struct DpPollHandle;

// Bus connection lost, or never made: the client should call DpClient_HdlReConnect.
constexpr unsigned kDpStatusDisconnected = 101;
// The process has been asked to end, and does so when the callback returns: time to write what was put off.
constexpr unsigned kDpStatusEnding = 102;

using DpMsgCallback = void (*)(DpPollHandle* handle, const _TagDpMsg* msg, void* user);
using DpStatusCallback = void (*)(DpPollHandle* handle, unsigned status, void* user);

// Every function that returns int returns 1 on success and -1 on failure, unless it says otherwise.

int DpClient_Init(const char* host, uint16_t port);
// The account of this process on a bus that wants to know who is who; to be called before DpClient_Start. Without it a
// process is the daemon.
void DpClient_UseAccount(const char* account);
int DpClient_Start(int mode);
int DpClient_Stop();

// The callbacks run inside DpClient_PollDpMessage. The last two arguments are passed as 0. A bus service that cannot
// be reached is no error: the status callback reports it at the first poll, then once a second.
DpPollHandle* DpClient_CreatePollHandle(DpMsgCallback on_message, void* user, DpStatusCallback on_status, int, int);

int DpClient_HdlAddListenMessage(DpPollHandle* handle, const char* const* type_names, int count);

// Makes a lost connection anew. Subscriptions are not restored: the caller subscribes again.
int DpClient_HdlReConnect(DpPollHandle* handle);

// The loop on which every timer of the program is placed. It lives until DpClient_Stop, and beyond it for as long as
// a timer is bound to it.
lxconn::EVT_LOOP* DpClient_GetEvtLoopFromPoll(DpPollHandle* handle);

// One pass of the event loop: waits for the next event, delivers messages, fires timers. Without a handle it waits for
// timeout ms.
int DpClient_PollDpMessage(DpPollHandle* handle, int timeout);

// Publishes to the subscribers of type_name. A message that cannot be sent now is dropped and counted.
int DpClient_SendDpMessage(const char* type_name, int, const void* data, uint32_t size);

// Answers the request that arrived under type_name with message_id.
int DpClient_SendDpReply(const char* type_name, int, uint32_t message_id, const void* data, uint32_t size);
