// Lets Avahi, embedded or as a client, run on the discovery thread's reactor.
#pragma once

#include <avahi-common/watch.h>

namespace boost::asio {
class io_context;
}

namespace ferrox::dnssd {

/// Must outlive every Avahi object made with it. Thread: discovery
class AvahiPollAdapter {
 public:
  explicit AvahiPollAdapter(boost::asio::io_context& context);
  AvahiPollAdapter(const AvahiPollAdapter&) = delete;
  AvahiPollAdapter& operator=(const AvahiPollAdapter&) = delete;

  const AvahiPoll* poll() const { return &poll_; }

 private:
  AvahiPoll poll_{};
};

}  // namespace ferrox::dnssd
