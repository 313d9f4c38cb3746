#include "Apps/ferrox/Terminal/PeerLines.h"

#include <fmt/chrono.h>

#include "Apps/ferrox/Terminal/TextTable.h"
#include "Platform/Base/Json.h"

namespace ferrox::command {
namespace {

Tone toneOf(PeerState state) {
  switch (state) {
    case PeerState::Found:
      return Tone::Notice;
    case PeerState::Responsive:
      return Tone::Good;
    case PeerState::Unresponsive:
      return Tone::Bad;
  }
  return Tone::Plain;
}

std::string textOf(const FRXDictionary& userInfo, std::string_view key) {
  const auto entry = userInfo.find(key);
  const std::string* text = entry == userInfo.end() ? nullptr : entry->second.asText();
  return text == nullptr ? std::string() : *text;
}

// The code with which the connection was closed, where it was not closed in order.
std::string closingText(const FRXDictionary& userInfo) {
  if (textOf(userInfo, "wasClean") == "YES") return {};
  const auto code = userInfo.find("code");
  const std::int64_t* number = code == userInfo.end() ? nullptr : code->second.asInteger();
  return number == nullptr ? std::string() : fmt::format(", closed with code {}", *number);
}

// A sender that is no published name stands for itself.
std::string senderText(const SeenNotification& notification) {
  if (notification.local) return "here";
  const std::string name = displayName(notification.sender);
  return name == "?" && !notification.sender.empty() ? notification.sender : name;
}

std::string countText(const std::optional<std::size_t>& count) {
  return count ? std::to_string(*count) : "-";
}

}  // namespace

std::string clockText(std::chrono::system_clock::time_point time) {
  return fmt::format("{:%H:%M:%S}", fmt::localtime(std::chrono::system_clock::to_time_t(time)));
}

std::string preciseClockText(std::chrono::system_clock::time_point time) {
  const auto second = std::chrono::floor<std::chrono::seconds>(time);
  const auto rest = std::chrono::floor<std::chrono::milliseconds>(time - second);
  return fmt::format("{}.{:03}", clockText(second), rest.count());
}

std::string nameAndAddress(const Peer& peer) {
  return fmt::format("{} ({})", displayName(*peer.service), displayAddress(*peer.service));
}

std::string notificationText(const SeenNotification& notification) {
  std::string out = notification.name;
  if (notification.filter) out += fmt::format(" [{}]", *notification.filter);
  out += " from " + senderText(notification);
  if (notification.userInfo.empty()) return out;
  return out + ": " + writeJson(notification.userInfo).value_or("{...}");
}

std::string connectionText(const ConnectionEvent& event) {
  const std::string peer = event.peer ? nameAndAddress(*event.peer) : textOf(event.userInfo, "frxURL");
  switch (event.change) {
    case ConnectionEvent::Change::Connected:
      return "connected to " + peer;
    case ConnectionEvent::Change::Failed:
      return fmt::format("no connection to {}: {}", peer, textOf(event.userInfo, "error"));
    case ConnectionEvent::Change::Disconnected:
      return "disconnected from " + peer + closingText(event.userInfo);
  }
  return peer;
}

std::vector<std::string> peerLines(const std::vector<Peer>& peers, std::size_t width, const Style& style) {
  TextTable table({{"NAME", Align::Left, 10},
                   {"ADDRESS", Align::Left, 16},
                   {"STATE", Align::Left, 12},
                   {"SINCE", Align::Left, 8},
                   {"STREAMS", Align::Right, 7},
                   {"PROJECTS", Align::Right, 8}});
  for (const Peer& peer : peers) {
    const bool connected = isConnected(peer);
    table.addRow({{displayName(*peer.service), Tone::Strong},
                  {displayAddress(*peer.service)},
                  {std::string(connected ? "connected" : toString(peer.state)),
                   connected ? Tone::Good : toneOf(peer.state)},
                  {clockText(connected ? *peer.connectedSince : peer.since)},
                  {countText(peer.streams)},
                  {countText(peer.projects)}});
  }
  return table.lines(width, style);
}

}  // namespace ferrox::command
