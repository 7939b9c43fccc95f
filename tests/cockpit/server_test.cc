// The cockpit's server over real sockets.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tests/cockpit/http_connection.h"
#include "tools/cockpit/cockpit_server.h"
#include "tools/core/failure.h"

namespace kelda::tools {
namespace {

class ServerTest : public testing::Test {
 protected:
  std::string Token() const {
    const std::string address = server_.address();
    return address.substr(address.size() - 33, 32);
  }
  std::string Host() const { return "127.0.0.1:" + std::to_string(server_.port()); }
  std::string Get(const std::string& path, const std::string& host) const {
    return Answer("GET " + path + " HTTP/1.1\r\nHost: " + host + "\r\n\r\n");
  }
  std::string Post(const std::string& what, const std::string& headers,
                   const std::string& body) const {
    return Answer("POST /" + Token() + "/" + what + " HTTP/1.1\r\nHost: " + Host() + "\r\n" +
                  headers + "\r\n" + body);
  }
  // Status line, headers and body.
  std::string Answer(const std::string& request) const {
    HttpConnection connection(server_.port());
    connection.Send(request);
    return connection.ReadAll();
  }

  int actions_ = 0;
  CockpitServer server_{0,
                        {.catalogue = [] { return "{}"; },
                         .action =
                             [this](const std::string& json) {
                               ++actions_;
                               return json == "bad" ? throw Failure(ExitCode::kUsage, "no \"bad\"")
                                                    : json;
                             },
                         .drop =
                             [](const std::vector<DroppedContent>& files) {
                               return files.at(0).name + "=" + files.at(0).bytes;
                             }}};
};

bool Is(const std::string& answer, int status) {
  return answer.starts_with("HTTP/1.1 " + std::to_string(status) + " ");
}

TEST_F(ServerTest, AnswersOnlyWhoeverMay) {
  const std::string home = "/" + Token() + "/";
  const std::string page = Get(home, Host());
  EXPECT_TRUE(Is(page, 200));
  constexpr const char* kPolicy =
      "Content-Security-Policy: default-src 'none'; script-src 'self'; style-src 'self'; img-src "
      "'self' data:; connect-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors "
      "'none'\r\n";
  for (const char* const header :
       {kPolicy, "X-Content-Type-Options: nosniff\r\n", "Referrer-Policy: no-referrer\r\n",
        "Cache-Control: no-store\r\n", "Cross-Origin-Resource-Policy: same-origin\r\n"}) {
    EXPECT_NE(page.find(header), std::string::npos) << header;
  }
  EXPECT_EQ(page.find("Access-Control"), std::string::npos);
  EXPECT_TRUE(Is(Get(home, "localhost:" + std::to_string(server_.port())), 200));
  EXPECT_TRUE(Is(Get(home + "catalogue", Host()), 200));

  EXPECT_TRUE(Is(Get(home, "evil.example:" + std::to_string(server_.port())), 403));
  EXPECT_TRUE(Is(Get(home, Host() + "\r\nHost: evil.example"), 403));
  std::string other = home;
  other[5] = other[5] == '0' ? '1' : '0';
  for (const std::string& path :
       {std::string("/"), other, "/" + Token(), home + "index.htm", home + "../" + Token() + "/",
        home + "%2e%2e/%2e%2e/etc/passwd", home + "/etc/passwd"}) {
    EXPECT_TRUE(Is(Get(path, Host()), 404)) << path;
  }
  EXPECT_TRUE(Is(Answer("DELETE " + home + " HTTP/1.1\r\nHost: " + Host() + "\r\n\r\n"), 404));

  const std::string origin = "Origin: http://" + Host() + "\r\n";
  const std::string json = "Content-Type: application/json\r\n", length = "Content-Length: 3\r\n";
  EXPECT_TRUE(Is(Post("action", json + length, "{}\n"), 403));
  EXPECT_TRUE(Is(Post("action", "Origin: http://evil.example\r\n" + json + length, "{}\n"), 403));
  EXPECT_TRUE(Is(Post("action", "Origin: null\r\n" + json + length, "{}\n"), 403));
  EXPECT_TRUE(Is(Post("action", origin + "Content-Type: text/plain\r\n" + length, "{}\n"), 415));
  EXPECT_TRUE(Is(Post("action", origin + json, ""), 411));
  EXPECT_TRUE(Is(Post("action", origin + json + "Content-Length: 70000\r\n", ""), 413));
  EXPECT_TRUE(Is(Post("drop",
                      origin + "Content-Type: multipart/form-data; boundary=x\r\n"
                               "Content-Length: 70000000\r\n",
                      ""),
                 413));
  EXPECT_EQ(actions_, 0);
  EXPECT_TRUE(Post("action", origin + json + length, "{}\n").ends_with("\r\n\r\n{}\n"));
  const std::string refused = Post("action", origin + json + length, "bad");
  EXPECT_TRUE(Is(refused, 400));
  EXPECT_NE(refused.find("\"no \\\"bad\\\"\""), std::string::npos) << refused;
  const std::string files =
      "--x\r\nContent-Disposition: form-data; name=\"file\"; filename=\"d/a.txt\"\r\n\r\n"
      "hello\r\n--x--\r\n";
  EXPECT_TRUE(Post("drop",
                   origin +
                       "Content-Type: multipart/form-data; boundary=x\r\n"
                       "Content-Length: " +
                       std::to_string(files.size()) + "\r\n",
                   files)
                  .ends_with("d/a.txt=hello"));
}

TEST_F(ServerTest, KeepsNoRequestWithoutAnEnd) {
  const auto begin = std::chrono::steady_clock::now();
  HttpConnection connection(server_.port());
  connection.Send("GET /" + std::string(200'000, 'a'));
  connection.ReadAll();
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(4));  // who waits: 5 s
}

TEST_F(ServerTest, ListenersAgreeAndHoldUpNobody) {
  const std::string request =
      "GET /" + Token() + "/events HTTP/1.1\r\nHost: " + Host() + "\r\n\r\n";
  server_.PublishState(R"({"version":1})");
  std::vector<std::unique_ptr<HttpConnection>> listeners;
  // One that reads nothing, and one that never ends its request.
  for (const std::string& begin : {request, std::string("GET /")}) {
    listeners.push_back(std::make_unique<HttpConnection>(server_.port()));
    listeners.back()->Send(begin);
  }
  for (std::size_t i = 1; i < CockpitServer::kMostListeners; ++i) {
    listeners.push_back(std::make_unique<HttpConnection>(server_.port()));
    listeners.back()->Send(request);
    EXPECT_TRUE(listeners.back()->ReadUntil("event: state\ndata: {\"version\":1}\n\n"));
  }
  EXPECT_TRUE(Is(Answer(request), 503));
  server_.PublishState(R"({"version":2})");
  server_.PublishMeters(R"({"load":1})");
  for (std::size_t i = 2; i < listeners.size(); ++i) {
    EXPECT_TRUE(listeners[i]->ReadUntil("event: state\ndata: {\"version\":2}\n\n"));
    EXPECT_TRUE(listeners[i]->ReadUntil("event: meters\ndata: {\"load\":1}\n\n"));
  }
  listeners.pop_back();  // a browser that closes; another may come
  for (int tries = 0; tries < 100 && server_.listeners() == CockpitServer::kMostListeners;
       ++tries) {
    server_.PublishMeters("{}");
    usleep(50'000);
  }
  EXPECT_LT(server_.listeners(), CockpitServer::kMostListeners);
  // A port that is taken is not shared.
  EXPECT_THROW(CockpitServer(server_.port(), {}), Failure);
}

}  // namespace
}  // namespace kelda::tools
