// What a copy makes of the structure document, above all of one that means harm.
#include "Platform/Base/JsonStream.h"
#include "Tests/Classes/Copy/CopyFixture.h"

namespace ferrox::test {
namespace {

namespace fs = std::filesystem;

/// The destination holds something, and so does the folder around it: neither may change.
class CopyStructureTests : public CopyFixture {
 protected:
  CopyStructureTests() {
    folder_.write("copies/destination/old", "old");
    folder_.write("copies/beside", "beside");
    before_ = treeOf(folder_.path());
  }
  void expectNothingChanged() const { expectSameTree(treeOf(folder_.path()), before_); }

  /// Expects that the document fails the copy with such a text, that the listener hears of it, and that
  /// nothing on disk is touched and no file asked for.
  void expectRefused(const std::string& structure, const std::string& reason,
                     const std::function<void(Builder&)>& configure = nullptr) {
    listener_ = std::make_shared<RecordingCopyListener>();
    ScriptedPeer peer(structure, {});
    const auto copy = copyFrom(peer.url(), configure);
    ASSERT_TRUE(copy->error()) << structure.substr(0, 200);
    EXPECT_EQ(copy->error()->domain, "com.ferrox.download.CopyR24ProjectOperation.ErrorDomain");
    EXPECT_NE(failureOf(copy).find(reason), std::string::npos) << failureOf(copy) << " is not: " << reason;
    EXPECT_EQ(listener_->calls(), Calls{"failure"});
    EXPECT_EQ(peer.requests().size(), 1U);
    expectNothingChanged();
  }
  void expectPathRefused(const std::string& jsonText, const std::string& reason) {
    expectRefused(R"({"directories":[],"files":["fine",)" + jsonText + "]}", reason);
    expectRefused(R"({"files":[],"directories":["fine",)" + jsonText + "]}", reason);
  }
  /// Expects that the document counts as not having been had: nobody hears of it.
  void expectSilentFailure(const std::string& structure, int code) {
    listener_ = std::make_shared<RecordingCopyListener>();
    ScriptedPeer peer(structure, {});
    const auto copy = copyFrom(peer.url());
    ASSERT_TRUE(copy->error()) << structure;
    EXPECT_EQ(copy->error()->domain, JsonErrorDomain);
    EXPECT_EQ(copy->error()->code, code);
    EXPECT_EQ(listener_->calls(), Calls{});
    expectNothingChanged();
  }

  std::map<std::string, std::string> before_;
};

TEST_F(CopyStructureTests, PathsThatWouldLeaveTheDestinationAreRefused) {
  for (const char* path :
       {R"("..")", R"("../a")", R"("a/..")", R"("a/../b")", R"("a/../../b")", R"("../")",
        R"("\u002e\u002e/a")", R"("a\/..\/..\/b")", R"("a/../../../../../../../../etc/passwd")"}) {
    expectPathRefused(path, "leads out of its folder");
  }
  for (const char* path : {R"("/etc/passwd")", R"("/")", R"("//a")", R"("\/a")", R"("\u002fa")"}) {
    expectPathRefused(path, "is absolute");
  }
}

TEST_F(CopyStructureTests, PathsWithCharactersThatNobodyCanTypeAreRefused) {
  expectPathRefused(R"("a\u0000b")", "holds a NUL");
  expectPathRefused(R"("..\u0000")", "holds a NUL");
  for (const char* path :
       {R"("a\nb")", R"("\u0001")", R"("a\r")", R"("\u001b[2J")", R"("\u007f")", R"("\u0085")"}) {
    expectPathRefused(path, "holds a control character");
  }
}

TEST_F(CopyStructureTests, PathsWithMoreThanOneSpellingAreRefused) {
  expectPathRefused(R"("")", "is empty");
  for (const char* path : {R"("a//b")", R"("a/")"}) expectPathRefused(path, "has an empty component");
  for (const char* path : {R"(".")", R"("./a")", R"("a/./b")", R"("a/.")"}) {
    expectPathRefused(path, "has a \".\" component");
  }
}

TEST_F(CopyStructureTests, PathsThatAreTooLongAreRefused) {
  expectPathRefused('"' + std::string(256, 'x') + '"', "more than 255 bytes");
  std::string deep = "d";
  while (deep.size() < 5000) deep += "/d";
  expectPathRefused('"' + deep + '"', "is longer than");
  // The destination's own path counts.
  std::string nearly = "d";
  while (nearly.size() < 4093) nearly += "/d";
  expectPathRefused('"' + nearly + '"', "is longer than");
}

TEST_F(CopyStructureTests, PathsThatExcludeEachOtherAreRefused) {
  expectRefused(R"({"files":["a","b","a"],"directories":[]})", "\"a\" comes twice");
  expectRefused(R"({"files":[],"directories":["a","a"]})", "\"a\" comes twice");
  expectRefused(R"({"files":["a"],"directories":["a"]})", "both a directory and a file");
  expectRefused(R"({"files":["a","a/b"],"directories":[]})", "\"a/b\" leads through the file \"a\"");
  expectRefused(R"({"files":["a"],"directories":["a/b/c"]})", "\"a/b/c\" leads through the file \"a\"");
  expectRefused(R"({"files":["a","a b","a!","a/b","a0"],"directories":[]})", "leads through the file \"a\"");
}

TEST_F(CopyStructureTests, AnythingButTwoListsOfTextsIsRefused) {
  expectRefused(R"([])", "is no object");
  expectRefused(R"("text")", "is no object");
  expectRefused(R"(7)", "is no object");
  expectRefused(R"(null)", "is no object");
  expectRefused(R"({})", "is missing");
  expectRefused(R"({"files":[]})", "\"directories\" is missing");
  expectRefused(R"({"directories":[]})", "\"files\" is missing");
  expectRefused(R"({"files":{},"directories":[]})", "\"files\" is no array");
  expectRefused(R"({"files":"a","directories":[]})", "\"files\" is no array");
  expectRefused(R"({"files":null,"directories":[]})", "\"files\" is no array");
  expectRefused(R"({"files":[],"directories":5})", "\"directories\" is no array");
  expectRefused(R"({"files":["a",5],"directories":[]})", "holds what is no text");
  expectRefused(R"({"files":[null],"directories":[]})", "holds what is no text");
  expectRefused(R"({"files":[],"directories":[["a"]]})", "holds what is no text");
  expectRefused(R"({"files":[],"directories":[{"a":"b"}]})", "holds what is no text");
  expectRefused(R"({"files":[],"directories":[],"files":["a"]})", "comes twice");
}

TEST_F(CopyStructureTests, AnswersThatAreNoJSONFailWithoutACall) {
  for (const char* text : {"", "{", "<html>", R"({"files":[],"directories":[]} x)", R"({"files":["a)",
                           R"({"files":["\ud800"],"directories":[]})",
                           "{\"files\":[\"\xFF\"],\"directories\":[]}", R"({'files':[]})"}) {
    expectSilentFailure(text, 1);
  }
  // Depth beyond any use.
  expectSilentFailure(R"({"x":)" + std::string(1000, '[') + std::string(1000, ']') + "}", 1);
}

TEST_F(CopyStructureTests, OtherMembersArePassedOver) {
  ScriptedPeer peer(
      R"({"more":[1,{"files":["../x"]},"/"],"files":["a"],"x":{"directories":3},"directories":[],"y":null})",
      {{"a", "x"}});
  EXPECT_EQ(failureOf(copyFrom(peer.url())), "");
  expectSameTree(treeOf(destination()), (std::map<std::string, std::string>{{"a", "x"}}));
}

TEST_F(CopyStructureTests, StatusesOtherThan200FailWithoutACall) {
  for (const int status : {201, 204, 206, 301, 404, 500, 503}) {
    const std::string line = "HTTP/1.1 " + std::to_string(status) + " Whatever";
    ScriptedPeer peer("", {}, [&](ScriptedConnection& connection, const std::string&) -> bool {
      return connection.send(status == 204 ? line + "\r\n\r\n" : ScriptedHTTPServer::answer("{}", line));
    });
    const auto copy = copyFrom(peer.url());
    EXPECT_EQ(failureOf(copy), "http call failed with status code " + std::to_string(status));
    EXPECT_EQ(copy->error()->domain, "com.ferrox.download.CopyR24ProjectOperation.ErrorDomain");
    EXPECT_EQ(copy->error()->code, -1);
  }
  EXPECT_EQ(listener_->calls(), Calls{});
  expectNothingChanged();
}

TEST_F(CopyStructureTests, TransportErrorsFailWithoutACall) {
  ScriptedPeer resetting("", {}, [](ScriptedConnection& connection, const std::string&) -> bool {
    connection.reset();
    throw ScriptedPeer::HangUp();
  });
  ScriptedPeer shortened("", {}, [](ScriptedConnection& connection, const std::string&) -> bool {
    connection.send("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n{\"files\":[]");
    connection.reset();
    throw ScriptedPeer::HangUp();
  });
  ScriptedPeer silent("", {}, [](ScriptedConnection& connection, const std::string&) -> bool {
    connection.stall();
    return true;
  });
  for (const std::string& url :
       {resetting.url(), shortened.url(), std::string("http://127.0.0.1:1/projects/P"),
        std::string("not a URL"), std::string("ftp://127.0.0.1/x"), silent.url()}) {
    const auto copy = copyFrom(url, [](Builder& builder) { builder.structureTimeout = 0.2; });
    ASSERT_TRUE(copy->error()) << url;
    EXPECT_EQ(copy->error()->domain, HTTPClientErrorDomain) << url;
  }
  EXPECT_TRUE(copyFrom("x", [](Builder& builder) { builder.projectDownloadURL = std::nullopt; })->error());
  EXPECT_EQ(listener_->calls(), Calls{});
  expectNothingChanged();
}

TEST_F(CopyStructureTests, MoreEntriesThanAllowedAreRefused) {
  const auto allowing = [](std::size_t entries) {
    return [entries](Builder& builder) { builder.maxStructureEntries = entries; };
  };
  const std::string three = R"({"files":["a","b"],"directories":["c"]})";
  expectRefused(three, "more than 2 entries", allowing(2));
  ScriptedPeer peer(three, {{"a", "x"}, {"b", "y"}});
  EXPECT_EQ(failureOf(copyFrom(peer.url(), allowing(3))), "");
}

TEST_F(CopyStructureTests, ALongerDocumentThanAllowedFailsWithoutACall) {
  const std::string structure = R"({"files":[],"directories":["a"]})";
  const auto allowing = [](std::size_t bytes) {
    return [bytes](Builder& builder) { builder.maxStructureBytes = bytes; };
  };
  ScriptedPeer peer(structure, {});
  const auto copy = copyFrom(peer.url(), allowing(structure.size() - 1));
  EXPECT_EQ(copy->error()->domain, JsonErrorDomain);
  EXPECT_EQ(listener_->calls(), Calls{});
  expectNothingChanged();
  EXPECT_EQ(failureOf(copyFrom(peer.url(), allowing(structure.size()))), "");
}

TEST_F(CopyStructureTests, ADocumentWithoutEndIsCutOff) {
  std::atomic<bool> gone{false};
  ScriptedPeer peer("", {}, [&](ScriptedConnection& connection, const std::string&) -> bool {
    connection.send("HTTP/1.1 200 OK\r\n\r\n{\"directories\":[],\"files\":[\"a0\"");
    std::string more;
    for (int i = 0; i < 1000; ++i) more += ",\"" + std::string(200, 'x') + std::to_string(i) + '"';
    while (connection.send(more)) {
    }
    gone = true;
    return true;
  });
  const auto copy = copyFrom(peer.url(), [](Builder& builder) { builder.maxStructureBytes = 5 << 20; });
  EXPECT_EQ(copy->error()->domain, JsonErrorDomain);
  EXPECT_TRUE(waitFor([&] { return gone.load(); }, copyPatience));
  expectNothingChanged();
}

TEST_F(CopyStructureTests, AMillionEntriesAreRead) {
  std::string structure = R"({"files":[],"directories":["a")";
  for (int i = 1; i < 1'000'000; ++i) structure += ",\"a/" + std::to_string(i) + '"';
  // One too many, so that the test does not make a million folders.
  structure += R"(,"a/..")";
  expectRefused(structure + "]}", "leads out of its folder");
}

TEST_F(CopyStructureTests, AThousandFoldersInsideEachOtherAreMadeAndRemoved) {
  std::string path = "d";
  std::string list = "\"d\"";
  for (int i = 1; i < 1000; ++i) {
    path += "/d";
    list += ",\"" + path + '"';
  }
  ScriptedPeer peer(R"({"files":[")" + path + R"(/f"],"directories":[)" + list + "]}",
                    {{path + "/f", "deep"}});
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(failureOf(copyFrom(peer.url())), "");
    EXPECT_EQ(readFile(destination() / path / "f"), "deep");
  }
}

TEST_F(CopyStructureTests, FoldersThatAreNotListedAreMadeForTheirFiles) {
  ScriptedPeer peer(R"({"files":["x/y/a","x/b"],"directories":[]})", {{"x/y/a", "1"}, {"x/b", "2"}});
  EXPECT_EQ(failureOf(copyFrom(peer.url())), "");
  EXPECT_EQ(readFile(destination() / "x/y/a"), "1");
  EXPECT_EQ(readFile(destination() / "x/b"), "2");
}

TEST_F(CopyStructureTests, EscapesInNamesAreJustLetters) {
  const std::map<std::string, std::string> files{{"%2e%2e%2fa", "1"}, {"..%2fb", "2"}, {"%00", "3"},
                                                 {"..\\c", "4"},      {"C:\\d", "5"},  {"...", "6"},
                                                 {"~", "7"}};
  ScriptedPeer peer(R"({"directories":[],"files":["%2e%2e%2fa","..%2fb","%00","..\\c","C:\\d","...","~"]})",
                    files);
  EXPECT_EQ(failureOf(copyFrom(peer.url())), "");
  expectSameTree(treeOf(destination()), files);
  EXPECT_EQ(readFile(folder_.path() / "copies/beside"), "beside");
}

TEST_F(CopyStructureTests, NamesThatDifferInCaseOnlyAreRefusedWhereTheDiskTakesThemForOne) {
  const std::string structure = R"({"files":["a","x/B.mov","x/b.MOV"],"directories":["x"]})";
  const auto refusing = [](Builder& builder) { builder.refusesCaseCollisions = true; };
  expectRefused(structure, R"("x/B.mov" and "x/b.MOV")", refusing);
  expectRefused("{\"directories\":[],\"files\":[\"\xC3\x84\",\"a\xCC\x88\"]}",
                "letter case is not told apart", refusing);
  expectRefused(R"({"directories":["D"],"files":["d"]})", R"("D" and "d")", refusing);
  std::string asked;
  parts_.foldsCase = [&](const std::string& path) {
    asked = path;
    return true;
  };
  expectRefused(structure, "letter case is not told apart");
  EXPECT_EQ(asked, destination().parent_path());
  parts_.foldsCase = [](const std::string&) { return false; };
  ScriptedPeer peer(structure, {{"a", "1"}, {"x/B.mov", "2"}, {"x/b.MOV", "3"}});
  EXPECT_EQ(failureOf(copyFrom(peer.url())), "");
  EXPECT_EQ(treeOf(destination()).size(), 4U);
}

}  // namespace
}  // namespace ferrox::test
