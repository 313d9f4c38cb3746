#include <gtest/gtest.h>

#include "Apps/ferrox/Commands/ProjectSearch.h"
#include "Classes/Discovery/FRXNetService.h"

namespace ferrox::command {
namespace {

class ProjectSearchTest : public testing::Test {
 protected:
  void addPeer(const std::string& name, const std::string& host, std::vector<FRXClientAccessor> projects) {
    auto service = std::make_shared<FRXNetService>(host, 16654, "0123-MTI=/" + name);
    listing_[std::string(FRXCapabilityNameProjectSharing)][service->serviceId()] = std::move(projects);
    Peer peer;
    peer.service = std::move(service);
    peers_.push_back(std::move(peer));
  }
  std::string find(const std::string& text) {
    problem_.clear();
    const auto name = ProjectName::fromText(text);
    if (!name) return "no name";
    const auto found = findProject(*name, peers_, listing_, problem_);
    EXPECT_EQ(found.has_value(), problem_.empty());
    return found ? found->url : "";
  }
  static FRXClientAccessor project(const std::string& host, const std::string& id) {
    return {"Name of " + id, "http://" + host + ":16654/projects/" + id};
  }

  std::vector<Peer> peers_;
  FRXCapabilitiesListing::Result listing_;
  std::string problem_;
};

TEST_F(ProjectSearchTest, NamesHaveTwoParts) {
  const auto name = ProjectName::fromText("edit/a/b");
  ASSERT_TRUE(name);
  EXPECT_EQ(name->peer, "edit");
  EXPECT_EQ(name->id, "a/b");
  for (const char* bad : {"", "/", "a/", "/a", "a", "-/a"}) EXPECT_FALSE(ProjectName::fromText(bad)) << bad;
}

TEST_F(ProjectSearchTest, APartOfThePeersNameIsEnough) {
  addPeer("EDITSUITE3", "a", {project("a", "film"), project("a", "My%20Film")});
  addPeer("GRADING", "b", {project("b", "film")});
  EXPECT_EQ(find("suite3/film"), "http://a:16654/projects/film");
  EXPECT_EQ(find("Edit Suite-3/film"), "http://a:16654/projects/film");
  EXPECT_EQ(find("grad/film"), "http://b:16654/projects/film");
  EXPECT_EQ(find("edit/My Film"), "http://a:16654/projects/My%20Film");
}

TEST_F(ProjectSearchTest, ThePeerWithExactlyThatNameGoesFirst) {
  addPeer("EDIT", "a", {project("a", "film")});
  addPeer("EDIT2", "b", {project("b", "film")});
  EXPECT_EQ(find("edit/film"), "http://a:16654/projects/film");
}

TEST_F(ProjectSearchTest, SeveralAreTold) {
  addPeer("EDIT1", "a", {project("a", "film")});
  addPeer("EDIT2", "b", {project("b", "film")});
  EXPECT_EQ(find("edit/film"), "");
  EXPECT_NE(problem_.find("EDIT1, EDIT2"), std::string::npos) << problem_;
}

TEST_F(ProjectSearchTest, NoneIsTold) {
  addPeer("EDIT1", "a", {project("a", "film")});
  EXPECT_EQ(find("edit/other"), "");
  EXPECT_NE(problem_.find("\"other\""), std::string::npos) << problem_;
  EXPECT_EQ(find("nobody/film"), "");
  listing_.clear();
  EXPECT_EQ(find("edit/film"), "");
}

}  // namespace
}  // namespace ferrox::command
