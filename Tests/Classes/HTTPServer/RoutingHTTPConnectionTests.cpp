#include <gtest/gtest.h>

#include "Classes/HTTPServer/RoutingHTTPConnection.h"
#include "Platform/Base/Json.h"
#include "Tests/Classes/HTTPServer/HostFixture.h"

namespace ferrox {
namespace {

using Route = RouteName;

class RoutingHTTPConnectionTests : public test::HostFixture {
 protected:
  Route routeOf(std::string_view method, std::string_view path) { return connection_.getRoute(method, path); }

  RoutingHTTPConnection connection_;
};

TEST_F(RoutingHTTPConnectionTests, RoutesHaveTheirValues) {
  EXPECT_EQ(static_cast<int>(Route::RouteNameGetRoot), 0);
  EXPECT_EQ(static_cast<int>(Route::RouteNameHeadRoot), 1);
  EXPECT_EQ(static_cast<int>(Route::RouteNameGetCapabilities), 2);
  EXPECT_EQ(static_cast<int>(Route::RouteNameGetStreamForPath), 3);
  EXPECT_EQ(static_cast<int>(Route::RouteNameGetProjectForPath), 4);
  EXPECT_EQ(static_cast<int>(Route::RouteNameGetFileForPath), 5);
  EXPECT_EQ(static_cast<int>(Route::RouteNameHeadFileForPath), 6);
  EXPECT_EQ(static_cast<int>(Route::RouteNameWebSocket), 7);
  EXPECT_EQ(static_cast<int>(Route::RouteNameGetService), 8);
  EXPECT_EQ(static_cast<int>(Route::RouteNameNotFound), 9);
  EXPECT_EQ(static_cast<int>(HTTPMethod::Get), 0);
  EXPECT_EQ(static_cast<int>(HTTPMethod::Head), 4);
}

TEST_F(RoutingHTTPConnectionTests, GetChoosesInOrder) {
  EXPECT_EQ(routeOf("GET", "/"), Route::RouteNameGetRoot);
  EXPECT_EQ(routeOf("GET", "/capabilities"), Route::RouteNameGetCapabilities);
  EXPECT_EQ(routeOf("GET", "/capabilities/"), Route::RouteNameGetCapabilities);
  EXPECT_EQ(routeOf("GET", "/projects/P1/files/a.mov"), Route::RouteNameGetFileForPath);
  EXPECT_EQ(routeOf("GET", "/projects/P1/files/"), Route::RouteNameGetProjectForPath);
  EXPECT_EQ(routeOf("GET", "/projects/P1"), Route::RouteNameGetProjectForPath);
  EXPECT_EQ(routeOf("GET", "/projects/"), Route::RouteNameGetProjectForPath);
  EXPECT_EQ(routeOf("GET", "/service"), Route::RouteNameGetService);
  EXPECT_EQ(routeOf("GET", "/services/more?x"), Route::RouteNameGetService);
  EXPECT_EQ(routeOf("GET", "/frxsocket"), Route::RouteNameWebSocket);
  EXPECT_EQ(routeOf("GET", "/frxsocket?id=abc"), Route::RouteNameWebSocket);
}

TEST_F(RoutingHTTPConnectionTests, PathsAreComparedExactlyWithTheirQuery) {
  for (const char* path : {"/?x=1", "", "//", "/capabilities?x", "/Capabilities", "/capabilities//",
                           "/projects", "/streams", "/Service", "/frxSocket", "capabilities", "/%73ervice"}) {
    EXPECT_EQ(routeOf("GET", path), Route::RouteNameNotFound) << path;
  }
}

TEST_F(RoutingHTTPConnectionTests, HeadChoosesInOrder) {
  EXPECT_EQ(routeOf("HEAD", "/"), Route::RouteNameHeadRoot);
  EXPECT_EQ(routeOf("HEAD", "/projects/P1/files/a.mov"), Route::RouteNameHeadFileForPath);
  EXPECT_EQ(routeOf("HEAD", "/streams/a/b.ts"), Route::RouteNameGetStreamForPath);
  for (const char* path : {"/capabilities", "/projects/P1", "/service", "/frxsocket", "/?x", "/x"}) {
    EXPECT_EQ(routeOf("HEAD", path), Route::RouteNameNotFound) << path;
  }
}

TEST_F(RoutingHTTPConnectionTests, OtherMethodsHaveNoRoute) {
  for (const char* method : {"POST", "PUT", "DELETE", "OPTIONS", "get", "", "GETX"}) {
    EXPECT_EQ(routeOf(method, "/"), Route::RouteNameNotFound) << method;
    EXPECT_FALSE(connection_.supportsMethod(method, "/"));
  }
}

TEST_F(RoutingHTTPConnectionTests, GetOfAStreamNeedsTheCapability) {
  EXPECT_EQ(routeOf("GET", "/streams/a/b.ts"), Route::RouteNameNotFound);
  server_->addCapability(streaming_);
  EXPECT_EQ(routeOf("GET", "/streams/a/b.ts"), Route::RouteNameGetStreamForPath);
  EXPECT_TRUE(connection_.hasCapability("streaming"));
  EXPECT_FALSE(connection_.hasCapability("projectsharing"));
}

TEST_F(RoutingHTTPConnectionTests, AllowedMethodsAreThoseThatHaveARoute) {
  EXPECT_EQ(connection_.allowedMethods("/"), "GET, HEAD");
  EXPECT_EQ(connection_.allowedMethods("/service"), "GET");
  EXPECT_EQ(connection_.allowedMethods("/streams/a/b.ts"), "HEAD");
  EXPECT_EQ(connection_.allowedMethods("/nowhere"), "");
}

TEST_F(RoutingHTTPConnectionTests, SocketAndUnknownRoutesHaveNoResponse) {
  EXPECT_EQ(connection_.httpResponseForMethod("GET", "/frxsocket?id=a"), nullptr);
  EXPECT_EQ(connection_.httpResponseForMethod("GET", "/nowhere"), nullptr);
  EXPECT_EQ(connection_.httpResponseForMethod("POST", "/"), nullptr);
}

TEST_F(RoutingHTTPConnectionTests, AnEmptyDelegateIsIgnored) {
  RoutingHTTPConnection::setConnectionRequestDelegate(connectionDelegate_);
  RoutingHTTPConnection::setConnectionRequestDelegate(nullptr);
  RoutingHTTPConnection::setCapabilitiesDelegate(nullptr);
  EXPECT_EQ(RoutingHTTPConnection::connectionRequestDelegate(), connectionDelegate_);
  EXPECT_EQ(RoutingHTTPConnection::capabilitiesDelegate(), server_);
  RoutingHTTPConnection::forgetDelegates();
  EXPECT_EQ(RoutingHTTPConnection::connectionRequestDelegate(), nullptr);
  EXPECT_EQ(RoutingHTTPConnection::capabilitiesDelegate(), nullptr);
}

TEST_F(RoutingHTTPConnectionTests, WithoutDelegatesNothingIsOffered) {
  RoutingHTTPConnection::forgetDelegates();
  EXPECT_FALSE(connection_.hasCapability("streaming"));
  EXPECT_EQ(connection_.getProjectPathFromId("P1"), std::nullopt);
  EXPECT_EQ(connection_.routeNameGetService()->status(), 500);
}

TEST_F(RoutingHTTPConnectionTests, AProjectPathIsThePathPartOfItsURL) {
  shareProject("P1", "file:///Users/x/P%201");
  shareProject("P2", "http://host/x");
  EXPECT_EQ(connection_.getProjectPathFromId("P1"), "/Users/x/P 1");
  EXPECT_EQ(connection_.getProjectPathFromId("P2"), std::nullopt);
  EXPECT_EQ(connection_.getProjectPathFromId("p1"), std::nullopt);
  EXPECT_EQ(connection_.getProjectPathFromId(""), std::nullopt);
}

TEST_F(RoutingHTTPConnectionTests, AFilePathThatIsTooShortIsABadRequest) {
  for (const char* path : {"", "a", "/", "/a", "a/b"}) {
    EXPECT_EQ(connection_.routeNameFileForPath(path, HTTPMethod::Get)->status(), 400) << path;
  }
  for (const char* path : {"//", "a/b/c", "/a/b", "/projects/P1/files/a"}) {
    EXPECT_EQ(connection_.routeNameFileForPath(path, HTTPMethod::Get)->status(), 404) << path;
  }
}

TEST_F(RoutingHTTPConnectionTests, AServiceIsReadFromAnEncodedBody) {
  connection_.processBodyData("%7B%22hostName%22%3A%22h.%22,");
  connection_.processBodyData("%22port%22%3A5%7D");
  const auto result = connection_.frxServiceFromRequestBody();
  const auto* service = std::get_if<std::shared_ptr<FRXNetService>>(&result);
  ASSERT_TRUE(service != nullptr && *service != nullptr);
  EXPECT_EQ((*service)->serviceId(), "H.:5");
}

TEST_F(RoutingHTTPConnectionTests, ABodyThatIsAbsentOrCannotBeDecodedIsABadRequest) {
  for (const char* body : {"", "%", "%zz", "%ff"}) {
    RoutingHTTPConnection connection;
    connection.processBodyData(body);
    const auto result = connection.frxServiceFromRequestBody();
    const auto* response = std::get_if<std::unique_ptr<HTTPResponse>>(&result);
    ASSERT_TRUE(response != nullptr && *response != nullptr) << body;
    EXPECT_EQ((*response)->status(), 400) << body;
  }
}

TEST_F(RoutingHTTPConnectionTests, ABodyThatIsNotJsonFillsTheError) {
  connection_.processBodyData("nonsense");
  FRXError error;
  const auto result = connection_.frxServiceFromRequestBody(&error);
  const auto* service = std::get_if<std::shared_ptr<FRXNetService>>(&result);
  ASSERT_NE(service, nullptr);
  EXPECT_EQ(*service, nullptr);
  EXPECT_FALSE(error.domain.empty());
}

class DocumentRoutes : public test::HostFixture {
 protected:
  DocumentRoutes() { start(); }
};

TEST_F(DocumentRoutes, RootAnswersWithTheDiscoveryDocument) {
  const auto response = get("/");
  EXPECT_EQ(response.status, 200);
  EXPECT_EQ(response.field("content-type"), "application/json");
  EXPECT_EQ(
      parseJson(response.body),
      FRXValue(FRXDictionary{
          {"name", "FRX"},
          {"api_root", "/"},
          {"resources", FRXDictionary{{"/capabilities", FRXDictionary{{"methods", FRXArray{"GET"}}}}}}}));
}

TEST_F(DocumentRoutes, HeadOfRootHasNoLength) {
  const auto response = head("/");
  EXPECT_EQ(response.status, 200);
  EXPECT_EQ(response.field("content-length"), "0");
}

TEST_F(DocumentRoutes, JsonDocumentsAreForThoseWhoAcceptJson) {
  for (const char* target : {"/", "/capabilities", "/capabilities/"}) {
    EXPECT_EQ(get(target, "Accept: text/html\r\n").status, 406) << target;
    EXPECT_EQ(get(target, "Accept: \r\n").status, 406) << target;
    EXPECT_EQ(get(target, "Accept: application/json;q=0.9\r\n").status, 200) << target;
    EXPECT_EQ(get(target, "accept: text/html, */*\r\n").status, 200) << target;
    EXPECT_EQ(get(target).status, 200) << target;
  }
  EXPECT_EQ(head("/", "Accept: text/html\r\n").status, 200);
  EXPECT_EQ(get("/projects/P1", "Accept: text/html\r\n").status, 200);
}

TEST_F(DocumentRoutes, CapabilitiesStandUnderTheirNames) {
  EXPECT_EQ(get("/capabilities").body, "{}");
  offerStream("cam A", "file:///nowhere");
  shareProject("P1", "file:///nowhere");
  const auto port = static_cast<int>(server_->port());
  const FRXValue expected(FRXDictionary{
      {"streaming", FRXArray{FRXDictionary{{"name", "Stream"},
                                           {"port", port},
                                           {"path", "/streams/cam%20A"},
                                           {"contentType", "video-angle"}}}},
      {"projectsharing", FRXArray{FRXDictionary{{"name", "Project"}, {"id", "P1"}, {"port", port}}}}});
  EXPECT_EQ(parseJson(get("/capabilities").body), expected);
  EXPECT_EQ(parseJson(get("/capabilities/").body), expected);
}

TEST_F(DocumentRoutes, UnknownPathsAndMethodsAreNotAllowed) {
  EXPECT_EQ(get("/capabilities?x").status, 405);
  EXPECT_EQ(get("/?x=1").status, 405);
  EXPECT_EQ(get("/streams/a/b.ts").status, 405);
  EXPECT_EQ(head("/streams/a/b.ts").status, 404);
  const auto response = request("POST", "/service", "Content-Length: 0\r\n");
  EXPECT_EQ(response.status, 405);
  EXPECT_EQ(response.field("allow"), "GET");
}

TEST_F(DocumentRoutes, ServiceAnswersWithTheLocalRecord) {
  EXPECT_EQ(get("/service").status, 500);
  RoutingHTTPConnection::setConnectionRequestDelegate(connectionDelegate_);
  EXPECT_EQ(get("/service").status, 500);

  connectionDelegate_->setLocal(std::make_shared<FRXNetService>("mac.local.", 16654, "id"));
  for (const char* target : {"/service", "/services", "/service?x=1"}) {
    const auto response = get(target);
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.field("content-type"), "application/json");
    const auto record = FRXNetService::fromJson(response.body);
    ASSERT_TRUE(record);
    EXPECT_EQ(record->serviceId(), "MAC.LOCAL.:16654");
    EXPECT_EQ(record->name(), "ID");
  }
}

TEST_F(DocumentRoutes, ALocalRecordThatCannotBeWrittenIsAServerError) {
  RoutingHTTPConnection::setConnectionRequestDelegate(connectionDelegate_);
  connectionDelegate_->setLocal(std::make_shared<FRXNetService>(std::nullopt, 16654, "id"));
  EXPECT_EQ(get("/service").status, 500);
}

TEST_F(DocumentRoutes, ThePlainRequestForTheSocketIsNotFound) {
  EXPECT_EQ(get("/frxsocket?id=a").status, 404);
}

}  // namespace
}  // namespace ferrox
