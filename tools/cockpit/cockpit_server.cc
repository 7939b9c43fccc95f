#include "tools/cockpit/cockpit_server.h"

#include <httplib.h>
#include <poll.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <mutex>
#include <set>
#include <span>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>

#include "tools/cockpit/cpu_time.h"
#include "tools/core/embedded_text.h"
#include "tools/core/failure.h"
#include "tools/core/interruption.h"
#include "tools/core/json.h"

namespace kelda::tools {

std::span<const EmbeddedText> CockpitTexts();  // the page and its parts

namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* kHost = "127.0.0.1";
constexpr std::size_t kThreads = 32;  // listeners included
constexpr std::size_t kWaiting = 16;  // connections without a thread yet
constexpr auto kRequestTime = std::chrono::seconds(5);
constexpr std::size_t kSlowestBytesPerMs = 1000;               // of what comes after that
constexpr std::size_t kMostHeadBytes = std::size_t{64} << 10;  // of a request and its headers
constexpr int kWriteMs = 5000;
constexpr auto kSilence = std::chrono::seconds(3);  // after which a listener gets a comment

constexpr int kOk = 200, kBadRequest = 400, kForbidden = 403, kNotFound = 404,
              kLengthRequired = 411, kTooLarge = 413, kWrongType = 415, kBusy = 503;

std::string MakeToken() {
  std::array<unsigned char, 16> bytes;
  if (getrandom(bytes.data(), bytes.size(), 0) != std::ssize(bytes)) {
    throw std::system_error(errno, std::generic_category(), "no random numbers");
  }
  constexpr char kDigits[] = "0123456789abcdef";
  std::string token;
  for (const unsigned char byte : bytes) {
    token += kDigits[byte >> 4u];
    token += kDigits[byte & 15u];
  }
  return token;
}

// Takes as long wherever they differ.
bool SameSecret(std::string_view a, std::string_view b) {
  unsigned differ = a.size() == b.size() ? 0 : 1;
  for (std::size_t i = 0; i < std::min(a.size(), b.size()); ++i) {
    differ |= static_cast<unsigned char>(a[i]) ^ static_cast<unsigned char>(b[i]);
  }
  return differ == 0;
}

std::string ErrorText(const std::string& text) { return ToText(Json{{"error", text}}); }

const char* TypeOf(std::string_view name) {
  if (name.ends_with(".js")) {
    return "text/javascript; charset=utf-8";
  }
  return name.ends_with(".css") ? "text/css; charset=utf-8" : "text/html; charset=utf-8";
}

// A socket whose whole request must arrive in time, and which waits for nobody for long.
class TimedStream : public httplib::Stream {
 public:
  explicit TimedStream(int socket) : socket_(socket), end_(Clock::now() + kRequestTime) {}

  bool is_readable() const override { return at_ < filled_ || Wait(POLLIN, LeftMs()); }
  bool is_writable() const override { return Wait(POLLOUT, 0); }
  ssize_t read(char* to, std::size_t size) override {
    // Lines are read so, and kept whole before anything is known of who sends them.
    if (size == 1 && ++single_bytes_ > kMostHeadBytes) {
      return -1;
    }
    if (at_ == filled_) {
      if (!Wait(POLLIN, LeftMs())) {
        return -1;
      }
      const ssize_t got = recv(socket_, buffer_.data(), buffer_.size(), 0);
      if (got <= 0) {
        return got;
      }
      at_ = 0;
      filled_ = static_cast<std::size_t>(got);
      end_ += std::chrono::milliseconds(filled_ / kSlowestBytesPerMs);
    }
    const std::size_t count = std::min(size, filled_ - at_);
    std::copy_n(buffer_.data() + at_, count, to);
    at_ += count;
    return static_cast<ssize_t>(count);
  }
  ssize_t write(const char* from, std::size_t size) override {
    return Wait(POLLOUT, kWriteMs) ? send(socket_, from, size, MSG_NOSIGNAL | MSG_DONTWAIT) : -1;
  }
  void get_remote_ip_and_port(std::string& ip, int& port) const override {
    ip = kHost;
    port = 0;
  }
  void get_local_ip_and_port(std::string& ip, int& port) const override {
    get_remote_ip_and_port(ip, port);
  }
  int socket() const override { return socket_; }

 private:
  int LeftMs() const {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end_ - Clock::now());
    return static_cast<int>(std::max<int64_t>(left.count(), 0));
  }
  bool Wait(short event, int ms) const {
    pollfd waiting{socket_, event, 0};
    int ready = 0;
    do {
      ready = poll(&waiting, 1, ms);
    } while (ready < 0 && errno == EINTR);
    return ready > 0 && (waiting.revents & event) != 0;
  }

  const int socket_;
  Clock::time_point end_;
  std::vector<char> buffer_ = std::vector<char>(std::size_t{16} << 10);
  std::size_t at_ = 0, filled_ = 0, single_bytes_ = 0;
};

// Threads for connections, made as they are needed, up to a number. Who comes when all are busy,
// and as many wait as may, holds up the one that accepts connections, and nobody else.
class BoundedThreads : public httplib::TaskQueue {
 public:
  explicit BoundedThreads(std::atomic<uint64_t>* cpu_ns) : cpu_ns_(cpu_ns) {}
  ~BoundedThreads() override = default;

  void enqueue(std::function<void()> work) override {
    std::unique_lock lock(mutex_);
    room_.wait(lock, [this] { return ending_ || work_.size() < kWaiting; });
    work_.push_back(std::move(work));
    if (idle_ < work_.size() && threads_.size() < kThreads) {
      threads_.emplace_back(&BoundedThreads::Run, this);
    }
    wake_.notify_one();
  }

  void shutdown() override {
    {
      const std::lock_guard lock(mutex_);
      ending_ = true;
    }
    wake_.notify_all();
    room_.notify_all();
    for (std::thread& thread : threads_) {
      thread.join();
    }
  }

 private:
  void Run() {
    std::unique_lock lock(mutex_);
    while (true) {
      ++idle_;
      wake_.wait(lock, [this] { return ending_ || !work_.empty(); });
      --idle_;
      if (work_.empty()) {
        return;
      }
      const std::function<void()> work = std::move(work_.front());
      work_.pop_front();
      room_.notify_one();
      lock.unlock();
      work();
      AddThreadCpu(cpu_ns_);
      lock.lock();
    }
  }

  std::atomic<uint64_t>* const cpu_ns_;
  std::mutex mutex_;
  std::condition_variable wake_, room_;
  std::deque<std::function<void()>> work_;
  std::vector<std::thread> threads_;
  std::size_t idle_ = 0;
  bool ending_ = false;
};

}  // namespace

class CockpitServer::Implementation : private httplib::Server {
 public:
  Implementation(int port, CockpitService service)
      : service_(std::move(service)), token_(MakeToken()) {
    new_task_queue = [this] { return new BoundedThreads(&cpu_ns_); };
    // Not the library's, by which two programs could share a port.
    set_socket_options([](int socket) {
      const int on = 1;
      setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
    });
    set_tcp_nodelay(true);
    set_payload_max_length(kMostDropBytes);
    set_default_headers(
        {{"Content-Security-Policy",
          "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' data:; "
          "connect-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'"},
         {"X-Content-Type-Options", "nosniff"},
         {"Referrer-Policy", "no-referrer"},
         {"Cache-Control", "no-store"},
         {"Cross-Origin-Resource-Policy", "same-origin"}});
    set_pre_routing_handler([this](const httplib::Request& request, httplib::Response& response) {
      return Route(request, response) ? HandlerResponse::Handled : HandlerResponse::Unhandled;
    });
    Post(".*", [this](const httplib::Request& request, httplib::Response& response) {
      Take(request, response);
    });
    port_ = port == 0 ? bind_to_any_port(kHost) : (bind_to_port(kHost, port) ? port : -1);
    if (port_ < 0) {
      throw Failure(ExitCode::kOutput, "--cockpit: port " + std::to_string(port) +
                                           " cannot be had; another program may use it");
    }
    const SignalsHeldBack held_back;
    thread_ = std::thread([this] {
      listen_after_bind();
      listened_ = true;
    });
    while (!is_running() && !listened_) {  // it could not be stopped before
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  }

  ~Implementation() override {
    {
      const std::lock_guard lock(mutex_);
      ending_ = true;
    }
    wake_.notify_all();
    stop();
    {
      const std::lock_guard lock(sockets_mutex_);
      closing_ = true;
      for (const int socket : sockets_) {
        shutdown(socket, SHUT_RDWR);
      }
    }
    thread_.join();
  }

  std::string address() const {
    return "http://" + std::string(kHost) + ":" + std::to_string(port_) + "/" + token_ + "/";
  }
  int port() const { return port_; }
  std::size_t listeners() const { return listeners_; }
  uint64_t cpu_ns() const { return cpu_ns_; }

  struct Event {
    uint64_t number = 0;
    std::string json;
  };
  Event state, meters;  // guarded by mutex_

  void Publish(Event* event, const std::string& json) {
    {
      const std::lock_guard lock(mutex_);
      event->json = json;
      ++event->number;
    }
    wake_.notify_all();
  }

 private:
  bool process_and_close_socket(socket_t socket) override {
    {
      const std::lock_guard lock(sockets_mutex_);
      sockets_.insert(socket);
      if (closing_) {
        shutdown(socket, SHUT_RDWR);
      }
    }
    TimedStream stream(socket);
    bool closed = false;
    constexpr bool kLastRequest = true;
    const bool done = process_request(stream, kLastRequest, closed, nullptr);
    {
      const std::lock_guard lock(sockets_mutex_);
      sockets_.erase(socket);
    }
    shutdown(socket, SHUT_RDWR);
    close(socket);
    return done;
  }

  // Answers everything but an allowed POST, whose body is still to come.
  bool Route(const httplib::Request& request, httplib::Response& response) {
    response.status = Check(request);
    if (response.status != kOk) {
      return true;
    }
    const std::string path = request.path.substr(token_.size() + 2);
    if (request.method == "POST") {
      return false;
    }
    if (path == "catalogue") {
      response.set_content(service_.catalogue(), "application/json");
    } else if (path == "events") {
      Listen(&response);
    } else if (const EmbeddedText* const text = Find(path.empty() ? "index.html" : path)) {
      response.set_content(text->text.data(), text->text.size(), TypeOf(text->name));
    } else {
      response.status = kNotFound;
    }
    return true;
  }

  int Check(const httplib::Request& request) const {
    const std::string port = ":" + std::to_string(port_);
    const std::string host = request.get_header_value("Host");
    if (request.get_header_value_count("Host") != 1 ||
        (host != kHost + port && host != "localhost" + port)) {
      return kForbidden;
    }
    const std::string_view path = request.path;
    if (path.size() < token_.size() + 2 || path[0] != '/' ||
        !SameSecret(path.substr(1, token_.size()), token_) || path[token_.size() + 1] != '/') {
      return kNotFound;
    }
    if (request.method == "GET") {
      return kOk;
    }
    const std::string_view what = path.substr(token_.size() + 2);
    const bool drop = what == "drop";
    if (request.method != "POST" || (!drop && what != "action")) {
      return kNotFound;
    }
    if (request.get_header_value_count("Origin") != 1 ||
        request.get_header_value("Origin") != "http://" + host) {
      return kForbidden;
    }
    const std::string type = request.get_header_value("Content-Type");
    if (!type.starts_with(drop ? "multipart/form-data" : "application/json") ||
        request.has_header("Content-Encoding")) {
      return kWrongType;
    }
    const std::string length = request.get_header_value("Content-Length");
    if (length.empty() || length.size() > 9 ||
        length.find_first_not_of("0123456789") != std::string::npos ||
        request.has_header("Transfer-Encoding")) {
      return kLengthRequired;
    }
    return std::stoull(length) > (drop ? kMostDropBytes : kMostActionBytes) ? kTooLarge : kOk;
  }

  static const EmbeddedText* Find(std::string_view name) {
    for (const EmbeddedText& text : CockpitTexts()) {
      if (text.name == name) {
        return &text;
      }
    }
    return nullptr;
  }

  void Take(const httplib::Request& request, httplib::Response& response) {
    std::string answer;
    response.status = kOk;
    try {
      if (request.path.ends_with("/action")) {
        answer = service_.action(request.body);
      } else {
        std::vector<DroppedContent> files;
        for (const auto& [name, file] : request.files) {
          files.push_back({file.filename, file.content});
        }
        answer = service_.drop(files);
      }
    } catch (const std::exception& error) {
      response.status = kBadRequest;
      answer = ErrorText(error.what());
    }
    response.set_content(answer, "application/json");
  }

  void Listen(httplib::Response* response) {
    if (listeners_.fetch_add(1) >= kMostListeners) {
      --listeners_;
      response->status = kBusy;
      response->set_content(ErrorText("too many pages are open"), "application/json");
      return;
    }
    struct Seen {
      uint64_t state = 0, meters = 0;
    };
    const auto seen = std::make_shared<Seen>();
    response->set_chunked_content_provider(
        "text/event-stream",
        [this, seen](std::size_t, httplib::DataSink& sink) {
          std::string text;
          {
            std::unique_lock lock(mutex_);
            wake_.wait_for(lock, kSilence, [&] {
              return ending_ || seen->state != state.number || seen->meters != meters.number;
            });
            if (ending_) {
              return false;
            }
            if (seen->state != state.number) {
              seen->state = state.number;
              text += "event: state\ndata: " + state.json + "\n\n";
            }
            if (seen->meters != meters.number) {
              seen->meters = meters.number;
              text += "event: meters\ndata: " + meters.json + "\n\n";
            }
          }
          text = text.empty() ? ": still here\n\n" : text;
          const bool written = sink.write(text.data(), text.size());
          AddThreadCpu(&cpu_ns_);
          return written;
        },
        [this](bool) { --listeners_; });
  }

  const CockpitService service_;
  const std::string token_;
  int port_ = -1;
  std::thread thread_;
  std::atomic<std::size_t> listeners_{0};
  std::atomic<uint64_t> cpu_ns_{0};
  std::atomic<bool> listened_{false};

  std::mutex mutex_;
  std::condition_variable wake_;
  bool ending_ = false;

  std::mutex sockets_mutex_;
  std::set<int> sockets_;
  bool closing_ = false;
};

CockpitServer::CockpitServer(int port, CockpitService service)
    : implementation_(std::make_unique<Implementation>(port, std::move(service))) {}

CockpitServer::~CockpitServer() = default;

std::string CockpitServer::address() const { return implementation_->address(); }
int CockpitServer::port() const { return implementation_->port(); }

void CockpitServer::PublishState(const std::string& json) {
  implementation_->Publish(&implementation_->state, json);
}

void CockpitServer::PublishMeters(const std::string& json) {
  implementation_->Publish(&implementation_->meters, json);
}

std::size_t CockpitServer::listeners() const { return implementation_->listeners(); }
uint64_t CockpitServer::cpu_ns() const { return implementation_->cpu_ns(); }

}  // namespace kelda::tools
