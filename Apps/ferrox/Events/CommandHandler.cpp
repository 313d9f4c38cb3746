#include "Apps/ferrox/Events/CommandHandler.h"

#include <fmt/format.h>

#include <array>
#include <utility>

#include "Apps/ferrox/Events/EventWriter.h"
#include "Apps/ferrox/Events/LineSplitter.h"
#include "Apps/ferrox/Events/StatisticsMembers.h"
#include "Apps/ferrox/Node/NodeCopies.h"
#include "Classes/Capabilities/FRXStream.h"
#include "Classes/Discovery/FRXNetService.h"
#include "Classes/Statistics/FRXStatistics.h"
#include "Platform/Base/Json.h"

namespace ferrox::command {

namespace {

Observation observationOf(CommandMembers& members) {
  return {members.name("name"), members.optionalName("filter")};
}

Post postOf(CommandMembers& members) {
  Observation observation = observationOf(members);
  return {std::move(observation.name), std::move(observation.filter), members.optionalObject("userInfo"),
          false};
}

/// Empty when a member is refused.
std::optional<Offer> offerOf(CommandMembers& members) {
  const std::string id = members.name("id");
  const std::string name = members.name("name");
  const std::string path = members.name("path");
  if (!members.problem().empty()) return std::nullopt;
  std::string problem;
  auto offer = Offer::fromParts(id, name, path, problem);
  if (!offer) members.refuse("id, name, path", "cannot be offered: " + problem);
  return offer;
}

}  // namespace

CommandHandler::CommandHandler(Node& node, NodeCopies& copies, EventWriter& writer,
                               std::function<void()> quit)
    : node_(node), copies_(copies), writer_(writer), quit_(std::move(quit)) {}

void CommandHandler::handleLine(const std::string& line) {
  if (line.find_first_not_of(" \t") == std::string::npos) return;
  FRXError error;
  std::optional<FRXValue> value = parseJson(line, &error);
  if (!value) {
    return writer_.write("error", {{"message", "a command line is no JSON: " + error.localizedDescription}});
  }
  if (value->asObject() == nullptr) {
    return writer_.write("error", {{"message", "a command line is no JSON object"}});
  }
  const FRXValue* name = value->member("cmd");
  if (name == nullptr || name->asText() == nullptr) {
    return writer_.write("error", {{"message", R"(a command line has no text "cmd")"}});
  }
  dispatch({*name->asText(), *value});
}

void CommandHandler::reportTooLong() {
  writer_.write(
      "error",
      {{"message", fmt::format("a command line is longer than {} bytes", LineSplitter::defaultLimit)}});
}

void CommandHandler::dispatch(const Command& command) {
  using Handler = void (CommandHandler::*)(const Command&);
  static constexpr std::array<std::pair<std::string_view, Handler>, 16> handlers{{
      {"post", &CommandHandler::post},
      {"postLocal", &CommandHandler::postLocal},
      {"observe", &CommandHandler::observe},
      {"unobserve", &CommandHandler::unobserve},
      {"addStream", &CommandHandler::addStream},
      {"removeStream", &CommandHandler::removeStream},
      {"addProject", &CommandHandler::addProject},
      {"removeProject", &CommandHandler::removeProject},
      {"list", &CommandHandler::list},
      {"copy", &CommandHandler::copy},
      {"cancelCopy", &CommandHandler::cancelCopy},
      {"peers", &CommandHandler::peers},
      {"search", &CommandHandler::search},
      {"status", &CommandHandler::status},
      {"rename", &CommandHandler::rename},
      {"stats", &CommandHandler::stats},
  }};
  for (const auto& [name, handler] : handlers) {
    if (command.name == name) return (this->*handler)(command);
  }
  if (command.name != "quit") {
    return fail(command,
                "unknown command; known are post, postLocal, observe, unobserve, addStream, removeStream, "
                "addProject, removeProject, list, copy, cancelCopy, peers, search, status, rename, stats, "
                "quit");
  }
  succeed(command, {});
  quit_();
}

void CommandHandler::peers(const Command& command) {
  FRXArray services;
  for (const Peer& peer : node_.peers()) services.emplace_back(node_.describe(peer));
  succeed(command, {{"services", std::move(services)}});
}

void CommandHandler::search(const Command& command) {
  const auto address = FRXPeerAddress::fromText(CommandMembers(command).text("address"));
  if (!address) return fail(command, R"("address" must be HOST, HOST:PORT or an IP address)");
  node_.search(*address, [this, command](const FetchedService& fetched) {
    if (!fetched.service) return fail(command, fetched.error->localizedDescription);
    succeed(command, {{"service", recordOf(*fetched.service)}, {"milliseconds", fetched.elapsed.count()}});
  });
}

void CommandHandler::status(const Command& command) {
  CommandMembers members(command);
  const std::string text = members.text("text");
  if (!members.problem().empty()) return fail(command, members.problem());
  std::string problem;
  if (!node_.setStatus(text, problem)) return fail(command, problem);
  succeed(command, {});
}

void CommandHandler::rename(const Command& command) {
  node_.rename([this, command](const std::string& name) { succeed(command, {{"serviceName", name}}); });
}

void CommandHandler::post(const Command& command) {
  CommandMembers members(command);
  Post post = postOf(members);
  post.repost = members.optionalFlag("repost");
  if (!members.problem().empty()) return fail(command, members.problem());
  succeed(command, {{"sentTo", node_.messaging().post(post).size()}});
}

void CommandHandler::postLocal(const Command& command) {
  CommandMembers members(command);
  const Post post = postOf(members);
  if (!members.problem().empty()) return fail(command, members.problem());
  node_.messaging().postLocal(post);
  succeed(command, {});
}

void CommandHandler::observe(const Command& command) {
  CommandMembers members(command);
  const Observation observation = observationOf(members);
  if (!members.problem().empty()) return fail(command, members.problem());
  node_.messaging().observe(observation);
  succeed(command, {});
}

void CommandHandler::unobserve(const Command& command) {
  CommandMembers members(command);
  const Observation observation = observationOf(members);
  if (!members.problem().empty()) return fail(command, members.problem());
  if (!node_.messaging().unobserve(observation))
    return fail(command, "this name is not observed with this filter");
  succeed(command, {});
}

void CommandHandler::addStream(const Command& command) {
  CommandMembers members(command);
  StreamOffer stream;
  const auto offer = offerOf(members);
  stream.contentType = members.name("contentType");
  if (stream.contentType != FRXContentTypeVideoAngle && stream.contentType != FRXContentTypeMomentsData) {
    members.refuse("contentType", "must be \"video-angle\" or \"moments-data\"");
  }
  stream.servedPath = members.optionalName("servedPath");
  stream.port = members.optionalPort("port");
  const bool broadcast = members.optionalFlag("broadcast");
  if (!members.problem().empty()) return fail(command, members.problem());
  stream.offer = *offer;
  std::string problem;
  const auto key = node_.offers()->addStream(stream, broadcast, problem);
  if (!key) return fail(command, problem);
  succeed(command, {{"servedPath", *key}});
}

void CommandHandler::addProject(const Command& command) {
  CommandMembers members(command);
  const auto offer = offerOf(members);
  const std::uint16_t port = members.optionalPort("port");
  const bool broadcast = members.optionalFlag("broadcast");
  if (!members.problem().empty()) return fail(command, members.problem());
  std::string problem;
  if (!node_.offers()->addProject({*offer, port}, broadcast, problem)) return fail(command, problem);
  succeed(command, {});
}

void CommandHandler::removeStream(const Command& command) {
  CommandMembers members(command);
  const std::string key = members.name("servedPath");
  const bool broadcast = members.optionalFlag("broadcast");
  if (!members.problem().empty()) return fail(command, members.problem());
  answerRemoval(command, node_.offers()->removeStream(key, broadcast), "no stream is served there");
}

void CommandHandler::removeProject(const Command& command) {
  CommandMembers members(command);
  const std::string id = members.name("id");
  const bool broadcast = members.optionalFlag("broadcast");
  if (!members.problem().empty()) return fail(command, members.problem());
  answerRemoval(command, node_.offers()->removeProject(id, broadcast), "no project has that id");
}

void CommandHandler::stats(const Command& command) {
  succeed(command, {{"stats", describe(FRXStatistics::current())}});
}

void CommandHandler::answerRemoval(const Command& command, bool removed, std::string_view otherwise) {
  if (!removed) return fail(command, otherwise);
  succeed(command, {});
}

void CommandHandler::list(const Command& command) {
  node_.list(FRXCapabilitiesListing::defaultResponseTimeout,
             [this, command](const FRXCapabilitiesListing::Result& result) {
               FRXValue described = describe(result);
               writer_.write("capabilities", {{"result", described}});
               succeed(command, {{"result", std::move(described)}});
             });
}

void CommandHandler::copy(const Command& command) {
  std::string problem;
  const auto request = CopyRequest::fromCommand(command, problem);
  if (!request) return fail(command, problem);
  succeed(command, {{"operationId", copies_.start(*request)}});
}

void CommandHandler::cancelCopy(const Command& command) {
  CommandMembers members(command);
  const std::string id = members.name("operationId");
  if (!members.problem().empty()) return fail(command, members.problem());
  if (!copies_.cancel(id)) return fail(command, "no copy with this id is under way");
  succeed(command, {});
}

void CommandHandler::succeed(const Command& command, FRXDictionary members) {
  members["cmd"] = command.name;
  members["ok"] = true;
  if (const FRXValue* ref = command.members.member("ref")) members["ref"] = *ref;
  writer_.write("result", std::move(members));
}

void CommandHandler::fail(const Command& command, std::string_view reason) {
  FRXDictionary members{{"cmd", command.name}, {"ok", false}, {"error", reason}};
  if (const FRXValue* ref = command.members.member("ref")) members["ref"] = *ref;
  writer_.write("result", std::move(members));
}

}  // namespace ferrox::command
