#include "Platform/DNSSD/Reconfirmation.h"

#include <algorithm>
#include <chrono>
#include <random>

#include "Platform/DNSSD/MulticastSocket.h"
#include "Platform/Log/Log.h"

namespace ferrox::dnssd {

using namespace std::chrono_literals;

namespace {

constexpr std::uint16_t authoritativeResponse = 0x8400;
constexpr std::uint16_t classMask = 0x7FFF;  // the top bit asks to flush the cache (RFC 6762 section 10.2)
constexpr std::chrono::milliseconds queryTimes[] = {0ms, 250ms, 1000ms};
constexpr auto giveUpAfter = 2000ms;

std::uint16_t randomId() {
  static thread_local std::mt19937 engine{std::random_device{}()};
  return static_cast<std::uint16_t>(std::uniform_int_distribution<unsigned>(1, 0xFFFF)(engine));
}

std::string srvQuery(const DNSName& instance, std::uint16_t id) {
  DNSMessage query;
  query.id = id;
  query.questions.push_back({instance, recordTypeSRV, recordClassIN});
  return writeDNSMessage(query).value_or("");
}

}  // namespace

std::optional<DNSName> instanceDNSName(const ServiceIdentity& identity) {
  auto name = dnsNameFromText(identity.type + "." + identity.domain);
  if (!name || identity.name.empty() || identity.name.size() > 63) return std::nullopt;
  name->insert(name->begin(), identity.name);
  return name;
}

bool confirmsInstance(std::string_view packet, const DNSName& instance) {
  const auto message = readDNSMessage(packet);
  if (!message || !message->isResponse()) return false;
  return std::any_of(message->records.begin(), message->records.end(), [&](const DNSRecord& record) {
    return record.type == recordTypeSRV && (record.recordClass & classMask) == recordClassIN &&
           record.timeToLive > 0 && sameDNSName(record.name, instance);
  });
}

std::optional<std::string> burialPacket(const ServiceIdentity& identity,
                                        const Reconfirmation::Records& records) {
  const auto instance = instanceDNSName(identity);
  if (!instance) return std::nullopt;
  DNSMessage message;
  message.flags = authoritativeResponse;
  DNSRecord pointer{DNSName(instance->begin() + 1, instance->end()), recordTypePTR, recordClassIN, 0, {}};
  for (const std::string& label : *instance) {
    pointer.rdata.push_back(static_cast<char>(label.size()));
    pointer.rdata.append(label);
  }
  pointer.rdata.push_back('\0');
  message.records.push_back(std::move(pointer));
  // The location too, or a peer that returns on another port would first be sought at the old one.
  for (const auto& [type, rdata] : records) {
    message.records.push_back({*instance, type, recordClassIN, 0, rdata});
  }
  return writeDNSMessage(message);
}

/// The questions at one place. Most owners answer the one-shot query within a millisecond; a packet filter
/// may keep such answers out, so the last question also goes out as an ordinary one.
class Reconfirmation::Asking {
 public:
  Asking(Reconfirmation& owner, const Place& place, DNSName instance)
      : owner_(owner), place_(place), instance_(std::move(instance)) {}

  void begin() {
    oneShot_ = open(MulticastSocket::Kind::OneShot, oneShotWatch_);
    shared_ = open(MulticastSocket::Kind::Shared, sharedWatch_);
    DiscoveryThread& thread = owner_.context_.thread;
    for (const auto& time : queryTimes) {
      const bool isLast = time == *std::prev(std::end(queryTimes));
      timers_.push_back(thread.after(time, [this, isLast] { ask(isLast); }));
    }
    timers_.push_back(thread.after(giveUpAfter, [this] { end(false); }));
  }

 private:
  std::unique_ptr<MulticastSocket> open(MulticastSocket::Kind kind, std::unique_ptr<Pending>& watch) {
    auto socket = MulticastSocket::open(place_, kind);
    if (!socket) return nullptr;
    watch = owner_.context_.thread.watchReadable(socket->descriptor(),
                                                 [this, raw = socket.get()] { read(*raw); });
    return socket;
  }

  void ask(bool alsoShared) {
    if (oneShot_) oneShot_->send(srvQuery(instance_, randomId()));
    if (alsoShared && shared_) shared_->send(srvQuery(instance_, 0));
  }

  void read(MulticastSocket& socket) {
    // A flood must not hold the thread; what is left is read in the next turn.
    for (int packets = 0; packets < 32; ++packets) {
      const auto packet = socket.receive();
      if (!packet) return;
      if (confirmsInstance(*packet, instance_)) return end(true);
    }
  }

  void end(bool confirmed) {
    if (ended_) return;
    ended_ = true;
    timers_.clear();
    oneShotWatch_.reset();
    sharedWatch_.reset();
    // The socket that is being read belongs to this turn; everything goes with the owner in a later one.
    owner_.finished(place_, confirmed);
  }

  Reconfirmation& owner_;
  Place place_;
  DNSName instance_;
  std::unique_ptr<MulticastSocket> oneShot_;
  std::unique_ptr<MulticastSocket> shared_;
  std::unique_ptr<Pending> oneShotWatch_;
  std::unique_ptr<Pending> sharedWatch_;
  std::vector<std::unique_ptr<Pending>> timers_;
  bool ended_ = false;
};

Reconfirmation::Reconfirmation(DiscoveryContext& context, ServiceIdentity identity,
                               const std::vector<Place>& places, RecordSource records, Done done)
    : context_(context),
      identity_(std::move(identity)),
      records_(std::move(records)),
      done_(std::make_shared<Done>(std::move(done))) {
  const auto instance = instanceDNSName(identity_);
  if (!instance) return;
  open_ = places.size();
  for (const Place& place : places) {
    asking_.push_back(std::make_unique<Asking>(*this, place, *instance));
    asking_.back()->begin();
  }
}

Reconfirmation::~Reconfirmation() = default;

void Reconfirmation::finished(const Place& place, bool confirmed) {
  if (!confirmed && bury(place)) buriedAny_ = true;
  if (--open_ > 0) return;
  context_.thread.post([weak = std::weak_ptr(done_), buried = buriedAny_] {
    if (const auto done = weak.lock()) (*done)(buried);
  });
}

bool Reconfirmation::bury(const Place& place) {
  FRX_LOG_DEBUG("Nobody confirms service " + Log::escaped(identity_.name) + "; dropping its records");
  const auto packet = burialPacket(identity_, records_(place));
  const auto socket = MulticastSocket::open(place, MulticastSocket::Kind::ThisHostOnly);
  if (packet && socket && socket->send(*packet)) return true;
  FRX_LOG_DEBUG(std::string("The records could not be dropped"));
  return false;
}

}  // namespace ferrox::dnssd
