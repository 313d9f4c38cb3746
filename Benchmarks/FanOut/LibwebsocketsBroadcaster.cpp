// The fan-out benchmark's second alternative: a libwebsockets server. One thread; each session writes one
// text whenever it is told that it may, and asks to be told again while there is more.

#include <libwebsockets.h>

#include <cstdio>
#include <cstring>
#include <deque>
#include <vector>

#include "Benchmarks/FanOut/Flow.h"
#include "Benchmarks/Support/Stamp.h"

namespace {

using ferrox::bench::Flow;

struct Broadcaster {
  Flow* flow = nullptr;
  std::size_t sessions = 0;
  /// With room for a frame header before each; all sessions write from here.
  std::deque<std::vector<unsigned char>> texts;
  std::size_t firstText = 0;
};

struct Session {
  std::size_t next;
};

Broadcaster broadcaster;

void post(lws_context* context, const lws_protocols* protocol) {
  const std::size_t before = broadcaster.texts.size();
  broadcaster.flow->postDue([](std::uint32_t number, bool last) {
    const std::string text = ferrox::bench::stampedText(number, last);
    std::vector<unsigned char> room(LWS_PRE + text.size());
    std::memcpy(room.data() + LWS_PRE, text.data(), text.size());
    broadcaster.texts.push_back(std::move(room));
  });
  if (broadcaster.texts.size() > before) lws_callback_on_writable_all_protocol(context, protocol);
}

int writeOne(lws* socket, Session& session) {
  if (session.next >= broadcaster.firstText + broadcaster.texts.size()) return 0;
  auto& room = broadcaster.texts[session.next++ - broadcaster.firstText];
  const std::size_t size = room.size() - LWS_PRE;
  if (lws_write(socket, room.data() + LWS_PRE, size, LWS_WRITE_TEXT) < static_cast<int>(size)) return -1;
  if (session.next < broadcaster.firstText + broadcaster.texts.size()) lws_callback_on_writable(socket);
  return 0;
}

int onPeer(lws* socket, lws_callback_reasons reason, void* user, void*, std::size_t) {
  switch (reason) {
    case LWS_CALLBACK_ESTABLISHED:
      static_cast<Session*>(user)->next = 0;
      if (++broadcaster.sessions == broadcaster.flow->peers()) {
        broadcaster.flow->start();
        post(lws_get_context(socket), lws_get_protocol(socket));
      }
      return 0;
    case LWS_CALLBACK_SERVER_WRITEABLE:
      return writeOne(socket, *static_cast<Session*>(user));
    default:
      return 0;
  }
}

int onAcknowledgements(lws* socket, lws_callback_reasons reason, void*, void*, std::size_t) {
  if (reason != LWS_CALLBACK_RAW_RX_FILE) return 0;
  const std::size_t arrived = broadcaster.flow->takeAcknowledgements() * broadcaster.flow->burst();
  broadcaster.firstText += arrived;
  broadcaster.texts.erase(broadcaster.texts.begin(),
                          broadcaster.texts.begin() + static_cast<std::ptrdiff_t>(arrived));
  const lws_protocols* peers = lws_vhost_name_to_protocol(lws_get_vhost(socket), "peers");
  post(lws_get_context(socket), peers);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  Flow flow(argc, argv);
  broadcaster.flow = &flow;
  lws_set_log_level(LLL_ERR, nullptr);
  static const lws_protocols protocols[] = {
      {"peers", onPeer, sizeof(Session), 4096, 0, nullptr, 0},
      {"acknowledgements", onAcknowledgements, 0, 0, 0, nullptr, 0},
      {nullptr, nullptr, 0, 0, 0, nullptr, 0},
  };
  lws_context_creation_info options{};
  options.port = flow.port();
  options.iface = "127.0.0.1";
  options.protocols = protocols;
  options.gid = -1;
  options.uid = -1;
  lws_context* context = lws_create_context(&options);
  if (context == nullptr) return 1;
  lws_sock_file_fd_type pipe{};
  pipe.filefd = Flow::acknowledgements;
  if (lws_adopt_descriptor_vhost(lws_get_vhost_by_name(context, "default"), LWS_ADOPT_RAW_FILE_DESC, pipe,
                                 "acknowledgements", nullptr) == nullptr) {
    return 1;
  }
  while (!flow.isDone() && lws_service(context, 0) >= 0) {
  }
  flow.report();
  lws_context_destroy(context);
  return 0;
}
