// Carries out the commands that arrive on stdin and answers each with one result.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "Apps/ferrox/Events/Command.h"
#include "Apps/ferrox/Node/Node.h"

namespace ferrox::command {

class EventWriter;
class NodeCopies;

/// Thread: main
class CommandHandler {
 public:
  /// All are borrowed and outlive the handler's last answer; `quit` ends the process's work.
  CommandHandler(Node& node, NodeCopies& copies, EventWriter& writer, std::function<void()> quit);

  /// One line of input. Whatever it holds, the node goes on.
  void handleLine(const std::string& line);
  void reportTooLong();

 private:
  void dispatch(const Command& command);
  void peers(const Command& command);
  void search(const Command& command);
  void status(const Command& command);
  void rename(const Command& command);
  void post(const Command& command);
  void postLocal(const Command& command);
  void observe(const Command& command);
  void unobserve(const Command& command);
  void addStream(const Command& command);
  void removeStream(const Command& command);
  void addProject(const Command& command);
  void removeProject(const Command& command);
  void list(const Command& command);
  void copy(const Command& command);
  void cancelCopy(const Command& command);
  void stats(const Command& command);
  void answerRemoval(const Command& command, bool removed, std::string_view otherwise);
  void succeed(const Command& command, FRXDictionary members);
  void fail(const Command& command, std::string_view reason);

  Node& node_;
  NodeCopies& copies_;
  EventWriter& writer_;
  std::function<void()> quit_;
};

}  // namespace ferrox::command
