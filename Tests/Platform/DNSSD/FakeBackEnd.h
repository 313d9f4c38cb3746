// A stack that does what the test says.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Platform/DNSSD/BackEnd.h"

namespace ferrox::dnssd::test {

/// Look-ups are filed under what they look for: the service type, or "name/record type". Thread: discovery
class FakeBackEnd final : public BackEnd {
 public:
  struct Group {
    ServiceRecords records;
    GroupHandler handler;
    std::vector<std::string> txtUpdates;
  };

  void report(const std::string& what, const LookupReport& report) {
    const auto known = lookups_.find(what);
    if (known != lookups_.end()) known->second(report);
  }
  bool isLookedFor(const std::string& what) const { return lookups_.count(what) > 0; }
  Group* group() { return groups_.empty() ? nullptr : groups_.back(); }
  std::size_t openGroups() const { return groups_.size(); }

  PublishError nextPublishError = PublishError::None;
  bool acceptsTXT = true;
  bool refusesLookups = false;

  void start(BackEndListener&, const InterfaceSelection&) override {}
  void stop() override {}
  void interfacesChanged(const InterfaceSelection&) override {}
  bool coversInterfaces(const ServiceGroup&) const override { return true; }

  std::unique_ptr<Lookup> browse(const std::string& type, const std::string&,
                                 LookupHandler handler) override {
    return open(type, std::move(handler));
  }
  std::unique_ptr<Lookup> watchRecord(const std::string& name, std::uint16_t recordType,
                                      LookupHandler handler) override {
    return open(name + "/" + std::to_string(recordType), std::move(handler));
  }
  std::unique_ptr<ServiceGroup> publish(const ServiceRecords& records, GroupHandler handler,
                                        PublishError& error) override {
    error = std::exchange(nextPublishError, PublishError::None);
    if (error != PublishError::None) return nullptr;
    return std::make_unique<FakeGroup>(*this, Group{records, std::move(handler), {}});
  }

 private:
  class FakeLookup final : public Lookup {
   public:
    FakeLookup(FakeBackEnd& owner, std::string what) : owner_(owner), what_(std::move(what)) {}
    ~FakeLookup() override { owner_.lookups_.erase(what_); }

   private:
    FakeBackEnd& owner_;
    std::string what_;
  };

  class FakeGroup final : public ServiceGroup {
   public:
    FakeGroup(FakeBackEnd& owner, Group group) : owner_(owner), group_(std::move(group)) {
      owner_.groups_.push_back(&group_);
    }
    ~FakeGroup() override { std::erase(owner_.groups_, &group_); }
    bool updateTXT(const std::string& rdata) override {
      if (owner_.acceptsTXT) group_.txtUpdates.push_back(rdata);
      return owner_.acceptsTXT;
    }

   private:
    FakeBackEnd& owner_;
    Group group_;
  };

  std::unique_ptr<Lookup> open(const std::string& what, LookupHandler handler) {
    if (refusesLookups) return nullptr;
    lookups_[what] = std::move(handler);
    return std::make_unique<FakeLookup>(*this, what);
  }

  std::map<std::string, LookupHandler> lookups_;
  std::vector<Group*> groups_;
};

}  // namespace ferrox::dnssd::test
