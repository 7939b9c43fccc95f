// The HTTP server of the cockpit, on the loopback interface.
#ifndef KELDA_TOOLS_COCKPIT_COCKPIT_SERVER_H_
#define KELDA_TOOLS_COCKPIT_COCKPIT_SERVER_H_

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace kelda::tools {

struct DroppedContent {
  std::string name;  // as the browser tells it: may name folders
  std::string bytes;
};

// What the page asks for, as JSON. Called on threads of the server, several at a time. What they
// throw is told to the page, as a bad request.
struct CockpitService {
  std::function<std::string()> catalogue;
  std::function<std::string(const std::string& json)> action;
  std::function<std::string(const std::vector<DroppedContent>& files)> drop;
};

// Serves the page, and below the same address what the service knows:
//
//   GET  /TOKEN/            the page; /TOKEN/NAME.js, NAME.css: its parts
//   GET  /TOKEN/catalogue   what does not change
//   GET  /TOKEN/events      server-sent events: state and meters
//   POST /TOKEN/action      JSON
//   POST /TOKEN/drop        files, as multipart/form-data
//
// Nobody gets an answer who does not know the token, 128 random bits; who comes by another host
// name (a name of somebody else's that leads here); or, for a POST, from another page. A connection
// has one request, which must arrive within seconds; a listener that does not keep up misses
// events, and is dropped if it takes none for five seconds. The number of connections is bounded,
// and so are sizes.
class CockpitServer {
 public:
  static constexpr std::size_t kMostListeners = 8;
  static constexpr std::size_t kMostActionBytes = std::size_t{64} << 10;
  static constexpr std::size_t kMostDropBytes = std::size_t{64} << 20;

  // `port` 0: a free one. Answers from now on. Throws Failure (output) if the port cannot be had.
  CockpitServer(int port, CockpitService service);
  // Ends all connections.
  ~CockpitServer();
  CockpitServer(const CockpitServer&) = delete;
  CockpitServer& operator=(const CockpitServer&) = delete;

  // "http://127.0.0.1:40123/0123456789abcdef0123456789abcdef/"
  std::string address() const;
  int port() const;

  // Gives listeners the latest of each; one who comes gets the latest state first. Any thread.
  void PublishState(const std::string& json);
  void PublishMeters(const std::string& json);

  // How many listen. Any thread.
  std::size_t listeners() const;
  // Processor time of its threads. Any thread.
  uint64_t cpu_ns() const;

 private:
  class Implementation;
  std::unique_ptr<Implementation> implementation_;
};

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_COCKPIT_COCKPIT_SERVER_H_
