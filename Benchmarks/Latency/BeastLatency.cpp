// The latency benchmark's second alternative, a floor for any WebSocket: Beast's blocking client and server,
// one thread on each side, no queue, no parsing.

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/websocket.hpp>
#include <exception>
#include <thread>

#include "Benchmarks/Latency/Course.h"

namespace {

using namespace ferrox::bench;
namespace asio = boost::asio;
namespace websocket = boost::beast::websocket;
using asio::ip::tcp;
using Stream = websocket::stream<tcp::socket>;

void observe(asio::io_context& context, const Course& course) {
  tcp::acceptor acceptor(context, {asio::ip::address_v4::loopback(), 0});
  announcePort(acceptor.local_endpoint().port());
  Stream stream(acceptor.accept());
  stream.accept();
  Arrivals arrivals(course.count);
  boost::beast::flat_buffer buffer;
  while (!arrivals.isDone()) {
    buffer.clear();
    stream.read(buffer);
    arrivals.take({static_cast<const char*>(buffer.cdata().data()), buffer.size()});
  }
  arrivals.report();
  awaitEnd();
}

void post(asio::io_context& context, const Course& course) {
  Stream stream(context);
  stream.next_layer().connect({asio::ip::address_v4::loopback(), course.port});
  stream.next_layer().set_option(tcp::no_delay(true));
  stream.handshake("127.0.0.1", "/");
  stream.text(true);
  for (std::uint32_t number = 0; number < course.count; ++number) {
    std::this_thread::sleep_for(course.pause);
    stream.write(asio::buffer(stampedText(number, false)));
  }
  awaitEnd();
}

}  // namespace

int main(int argc, char** argv) {
  const Course course(argc, argv);
  try {
    asio::io_context context{1};
    course.isObserver ? observe(context, course) : post(context, course);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "%s\n", failure.what());
    return 1;
  }
  return 0;
}
