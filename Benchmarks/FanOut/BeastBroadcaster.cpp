// The fan-out benchmark's first alternative: a WebSocket server as textbooks build it on Beast. One thread,
// one queue of shared texts a session, one write under way a session.

#include <algorithm>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/websocket.hpp>
#include <cstdio>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "Benchmarks/FanOut/Flow.h"
#include "Benchmarks/Support/Stamp.h"

namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
using asio::ip::tcp;
using boost::system::error_code;
using ferrox::bench::Flow;

class Session : public std::enable_shared_from_this<Session> {
 public:
  explicit Session(tcp::socket socket) : stream_(std::move(socket)) {}

  template <typename Ready>
  void start(Ready ready) {
    beast::get_lowest_layer(stream_).socket().set_option(tcp::no_delay(true));
    stream_.set_option(beast::websocket::stream_base::timeout::suggested(beast::role_type::server));
    stream_.async_accept([self = shared_from_this(), ready](error_code error) {
      if (error) return;
      self->stream_.text(true);
      self->read();
      ready(self);
    });
  }

  void send(std::shared_ptr<const std::string> text) {
    queue_.push_back(std::move(text));
    if (queue_.size() == 1) write();
  }

 private:
  void write() {
    stream_.async_write(asio::buffer(*queue_.front()),
                        [self = shared_from_this()](error_code error, std::size_t) {
                          if (error) return;
                          self->queue_.pop_front();
                          if (!self->queue_.empty()) self->write();
                        });
  }

  void read() {
    stream_.async_read(buffer_, [self = shared_from_this()](error_code error, std::size_t) {
      if (error) return;
      self->buffer_.clear();
      self->read();
    });
  }

  beast::websocket::stream<beast::tcp_stream> stream_;
  beast::flat_buffer buffer_;
  std::deque<std::shared_ptr<const std::string>> queue_;
};

class Broadcaster {
 public:
  Broadcaster(asio::io_context& context, Flow& flow)
      : context_(context),
        flow_(flow),
        acceptor_(context, tcp::endpoint(asio::ip::address_v4::loopback(), flow.port())),
        acknowledgements_(context, Flow::acknowledgements) {
    accept();
    awaitAcknowledgement();
  }

 private:
  void accept() {
    acceptor_.async_accept([this](error_code error, tcp::socket socket) {
      if (error) return;
      std::make_shared<Session>(std::move(socket))->start([this](std::shared_ptr<Session> session) {
        sessions_.push_back(std::move(session));
        if (sessions_.size() == flow_.peers()) begin();
      });
      accept();
    });
  }

  void begin() {
    flow_.start();
    post();
  }

  void awaitAcknowledgement() {
    acknowledgements_.async_wait(asio::posix::stream_descriptor::wait_read, [this](error_code error) {
      if (error) return;
      flow_.takeAcknowledgements();
      post();
      if (flow_.isDone()) return context_.stop();
      awaitAcknowledgement();
    });
  }

  void post() {
    flow_.postDue([this](std::uint32_t number, bool last) {
      const auto text = std::make_shared<const std::string>(ferrox::bench::stampedText(number, last));
      for (const auto& session : sessions_) session->send(text);
    });
  }

  asio::io_context& context_;
  Flow& flow_;
  tcp::acceptor acceptor_;
  asio::posix::stream_descriptor acknowledgements_;
  std::vector<std::shared_ptr<Session>> sessions_;
};

}  // namespace

int main(int argc, char** argv) {
  Flow flow(argc, argv);
  try {
    asio::io_context context{1};
    Broadcaster broadcaster(context, flow);
    context.run();
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "%s\n", failure.what());
    return 1;
  }
  flow.report();
  return 0;
}
