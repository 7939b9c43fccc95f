// A connection to the PipeWire server of this user, and what is known of its nodes.
#ifndef KELDA_TOOLS_LIVE_PIPEWIRE_CONNECTION_H_
#define KELDA_TOOLS_LIVE_PIPEWIRE_CONNECTION_H_

#include <pipewire/pipewire.h>

#include <cstdint>
#include <map>
#include <string>

#include "tools/core/failure.h"

// PipeWire's macros.
#ifdef __clang__
#pragma clang diagnostic ignored "-Wgnu-statement-expression"
#endif

namespace kelda::tools {

// The server has ended, or never ran.
class ServerGone : public Failure {
 public:
  explicit ServerGone(const std::string& message) : Failure(ExitCode::kOutput, message) {}
};

// One loop, context and core. Everything happens in Iterate, on the thread that made it, but for
// the streams' processing: that is on the one data thread of the context, with real-time priority
// where the system allows it.
class PipeWireConnection {
 public:
  // Throws ServerGone if no server answers.
  PipeWireConnection();
  ~PipeWireConnection();
  PipeWireConnection(const PipeWireConnection&) = delete;
  PipeWireConnection& operator=(const PipeWireConnection&) = delete;

  pw_core* core() { return core_; }
  pw_registry* registry() { return registry_; }

  // Does what is due, and waits for it for up to `milliseconds`; less if a signal comes. Throws
  // ServerGone.
  void Iterate(int milliseconds);

  // Waits until the server has done everything that was asked of it. Throws ServerGone and
  // Interrupted.
  void RoundTrip();

  // The global object `name` of `type`, found by its property `key`; 0 if there is none.
  uint32_t Find(const std::string& type, const std::string& key, const std::string& name) const;
  // The node that `node` plays to: its description. Empty if there is none.
  std::string TargetOf(uint32_t node) const;
  // The names of the sinks, one a line, each after two blanks.
  std::string Sinks() const;
  bool HasSink(const std::string& name) const;

 private:
  struct Global {
    std::string type;
    std::map<std::string, std::string> properties;
    std::string Get(const std::string& key) const;
  };

  void Close();
  static void OnError(void* data, uint32_t id, int sequence, int result, const char* message);
  static void OnDone(void* data, uint32_t id, int sequence);
  static void OnGlobal(void* data, uint32_t id, uint32_t permissions, const char* type,
                       uint32_t version, const spa_dict* properties);
  static void OnGlobalRemoved(void* data, uint32_t id);

  pw_main_loop* main_loop_ = nullptr;
  pw_loop* loop_ = nullptr;
  pw_context* context_ = nullptr;
  pw_core* core_ = nullptr;
  pw_registry* registry_ = nullptr;
  spa_hook core_listener_{}, registry_listener_{};
  std::map<uint32_t, Global> globals_;
  bool gone_ = false;
  int awaited_ = 0, done_ = 0;  // numbers of round trips
};

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_LIVE_PIPEWIRE_CONNECTION_H_
