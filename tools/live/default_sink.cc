#include "tools/live/default_sink.h"

#include <pipewire/extensions/metadata.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <map>
#include <optional>
#include <span>
#include <system_error>

#include "tools/core/failure.h"
#include "tools/core/interruption.h"
#include "tools/core/json.h"
#include "tools/core/output_file.h"
#include "tools/live/pipewire_connection.h"

namespace kelda::tools {
namespace {

constexpr int kLookMs = 100;
constexpr const char* kConfigured = "default.configured.audio.sink";  // what the user chose
constexpr const char* kEffective = "default.audio.sink";              // what follows from it
constexpr const char* kJson = "Spa:String:JSON";

// The name in a value like { "name": "alsa_output.usb" }; empty if there is none.
std::string NameIn(const std::string& value) {
  const Json json = Json::parse(value, nullptr, false);
  return json.is_object() ? json.value("name", "") : "";
}

// The session manager's table of defaults.
class Defaults {
 public:
  // Throws ServerGone, and Failure (output) if nobody keeps such a table.
  Defaults() {
    static const pw_metadata_events known_events = [] {
      pw_metadata_events events{};
      events.version = PW_VERSION_METADATA_EVENTS;
      events.property = OnProperty;
      return events;
    }();
    connection_.RoundTrip();
    const uint32_t id = connection_.Find(PW_TYPE_INTERFACE_Metadata, "metadata.name", "default");
    if (id == 0) {
      throw Failure(ExitCode::kOutput,
                    "--default: no session manager keeps a default; `systemctl --user start "
                    "wireplumber` starts one");
    }
    metadata_ = static_cast<pw_metadata*>(pw_registry_bind(
        connection_.registry(), id, PW_TYPE_INTERFACE_Metadata, PW_VERSION_METADATA, 0));
    pw_metadata_add_listener(metadata_, &listener_, &known_events, this);
    connection_.RoundTrip();
  }
  ~Defaults() {
    spa_hook_remove(&listener_);
    pw_proxy_destroy(reinterpret_cast<pw_proxy*>(metadata_));
  }
  Defaults(const Defaults&) = delete;
  Defaults& operator=(const Defaults&) = delete;

  std::string Get(const char* key) const {
    const auto found = values_.find(key);
    return found == values_.end() ? "" : found->second;
  }
  // An empty value clears it.
  void Configure(const std::string& value) {
    pw_metadata_set_property(metadata_, 0, kConfigured, value.empty() ? nullptr : kJson,
                             value.empty() ? nullptr : value.c_str());
    connection_.RoundTrip();
  }
  PipeWireConnection& connection() { return connection_; }

 private:
  static int OnProperty(void* data, uint32_t subject, const char* key, const char*,
                        const char* value) {
    if (subject == 0 && key != nullptr) {
      static_cast<Defaults*>(data)->values_[key] = value != nullptr ? value : "";
    }
    return 0;
  }

  PipeWireConnection connection_;
  pw_metadata* metadata_ = nullptr;
  spa_hook listener_{};
  std::map<std::string, std::string> values_;
};

bool ParentLives(int pipe) {
  pollfd readable{pipe, POLLIN, 0};
  return poll(&readable, 1, 0) == 0;
}

void Tell(int pipe, const std::string& line) {
  WriteAll(pipe, std::as_bytes(std::span(line)));  // a parent that died wants to know nothing
}

// The child: until the pipe ends, and a moment longer.
void Keep(const std::string& name, int pipe) {
  std::optional<std::string> before;  // what was configured, as it stood there
  while (true) {
    try {
      Defaults defaults;
      if (!before) {
        const std::string configured = defaults.Get(kConfigured);
        const std::string effective = NameIn(defaults.Get(kEffective));
        // Ours, from a run that nobody could put back, is no choice of the user; but what another
        // run has set and will put back stays.
        const bool left = NameIn(configured) == name && !defaults.connection().HasSink(name);
        before = left ? "" : configured;
        Tell(pipe, "+" + (effective == name ? "" : effective) + "\n");
      }
      if (ParentLives(pipe)) {
        defaults.Configure(Json{{"name", name}}.dump());
      }
      while (ParentLives(pipe)) {
        defaults.connection().Iterate(kLookMs);
      }
      if (NameIn(defaults.Get(kConfigured)) == name) {
        defaults.Configure(*before);
      }
      return;
    } catch (const Failure& failure) {
      if (!before) {
        return Tell(pipe, std::string("-") + failure.what() + "\n");
      }
      if (!ParentLives(pipe)) {
        return;
      }
      usleep(1000 * kLookMs);  // the server may come back
    }
  }
}

// The child's first line, without its end; empty if there is none.
std::string ReadLine(int pipe) {
  std::string line;
  while (true) {
    CheckInterruption();
    pollfd readable{pipe, POLLIN, 0};
    char byte;
    if (poll(&readable, 1, kLookMs) > 0 && (read(pipe, &byte, 1) != 1 || byte == '\n')) {
      return line;
    }
    if (readable.revents != 0) {
      line += byte;
    }
  }
}

}  // namespace

DefaultSink::DefaultSink(const std::string& node_name) {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
    throw std::system_error(errno, std::generic_category(), "socketpair");
  }
  child_ = fork();
  if (child_ == 0) {
    // Neither the terminal's keys nor a stop of the whole group may end it before its work is done.
    setsid();
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGPIPE}) {
      std::signal(signal, SIG_IGN);
    }
    close(ends[0]);
    try {
      Keep(node_name, ends[1]);
    } catch (const std::exception&) {
      _exit(1);  // the parent reads no line
    }
    _exit(0);
  }
  const int error = errno;
  close(ends[1]);
  pipe_ = ends[0];
  if (child_ < 0) {
    close(pipe_);
    throw std::system_error(error, std::generic_category(), "fork");
  }
  std::string line;
  try {
    line = ReadLine(pipe_);
  } catch (...) {
    close(pipe_);
    waitpid(child_, nullptr, 0);
    throw;
  }
  if (line.empty() || line.front() != '+') {
    close(pipe_);
    waitpid(child_, nullptr, 0);
    throw Failure(ExitCode::kOutput, line.empty()
                                         ? "--default: the process that keeps the default failed"
                                         : line.substr(1));
  }
  before_ = line.substr(1);
}

DefaultSink::~DefaultSink() {
  close(pipe_);
  while (waitpid(child_, nullptr, 0) < 0 && errno == EINTR) {
  }
}

}  // namespace kelda::tools
