#include "tools/live/pipewire_connection.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "tools/core/interruption.h"

namespace kelda::tools {
namespace {

constexpr const char* kSinkClass = "Audio/Sink";

}  // namespace

PipeWireConnection::PipeWireConnection() {
  static const pw_core_events core_events = [] {
    pw_core_events events{};
    events.version = PW_VERSION_CORE_EVENTS;
    events.done = OnDone;
    events.error = OnError;
    return events;
  }();
  static const pw_registry_events registry_events = [] {
    pw_registry_events events{};
    events.version = PW_VERSION_REGISTRY_EVENTS;
    events.global = OnGlobal;
    events.global_remove = OnGlobalRemoved;
    return events;
  }();
  const SignalsHeldBack held_back;  // the context starts the data thread
  pw_init(nullptr, nullptr);
  main_loop_ = pw_main_loop_new(nullptr);
  if (main_loop_ != nullptr) {
    loop_ = pw_main_loop_get_loop(main_loop_);
    pw_loop_enter(loop_);
    // This configuration gives the data thread its priority.
    context_ =
        pw_context_new(loop_, pw_properties_new(PW_KEY_CONFIG_NAME, "client-rt.conf", nullptr), 0);
  }
  if (context_ != nullptr) {
    core_ = pw_context_connect(context_, nullptr, 0);
  }
  if (core_ == nullptr) {
    const int error = errno;
    Close();
    throw ServerGone(
        std::string("no PipeWire server answers (") + std::strerror(error) +
        "). On a desktop `systemctl --user start pipewire wireplumber` starts it; in a\n"
        "session of another kind XDG_RUNTIME_DIR must name the user's directory");
  }
  pw_core_add_listener(core_, &core_listener_, &core_events, this);
  registry_ = pw_core_get_registry(core_, PW_VERSION_REGISTRY, 0);
  pw_registry_add_listener(registry_, &registry_listener_, &registry_events, this);
}

PipeWireConnection::~PipeWireConnection() { Close(); }

void PipeWireConnection::Close() {
  if (registry_ != nullptr) {
    spa_hook_remove(&registry_listener_);
    pw_proxy_destroy(reinterpret_cast<pw_proxy*>(registry_));
  }
  if (core_ != nullptr) {
    spa_hook_remove(&core_listener_);
    pw_core_disconnect(core_);
  }
  if (context_ != nullptr) {
    pw_context_destroy(context_);
  }
  if (main_loop_ != nullptr) {
    pw_loop_leave(loop_);
    pw_main_loop_destroy(main_loop_);
  }
}

void PipeWireConnection::Iterate(int milliseconds) {
  pw_loop_iterate(loop_, milliseconds);
  if (gone_) {
    throw ServerGone("the PipeWire server has ended");
  }
}

void PipeWireConnection::RoundTrip() {
  constexpr int kLookMs = 100;
  awaited_ = pw_core_sync(core_, PW_ID_CORE, 0);
  while (done_ != awaited_) {
    Iterate(kLookMs);
    CheckInterruption();
  }
}

uint32_t PipeWireConnection::Find(const std::string& type, const std::string& key,
                                  const std::string& name) const {
  const auto found = std::find_if(globals_.begin(), globals_.end(), [&](const auto& global) {
    return global.second.type == type && global.second.Get(key) == name;
  });
  return found == globals_.end() ? 0 : found->first;
}

std::string PipeWireConnection::TargetOf(uint32_t node) const {
  for (const auto& [id, global] : globals_) {
    if (global.type == PW_TYPE_INTERFACE_Link &&
        global.Get(PW_KEY_LINK_OUTPUT_NODE) == std::to_string(node)) {
      const std::string input = global.Get(PW_KEY_LINK_INPUT_NODE);
      const auto target = std::find_if(globals_.begin(), globals_.end(), [&](const auto& other) {
        return std::to_string(other.first) == input;
      });
      if (target != globals_.end()) {
        const std::string description = target->second.Get(PW_KEY_NODE_DESCRIPTION);
        return description.empty() ? target->second.Get(PW_KEY_NODE_NAME) : description;
      }
    }
  }
  return "";
}

std::string PipeWireConnection::Sinks() const {
  std::string names;
  for (const auto& [id, global] : globals_) {
    if (global.Get(PW_KEY_MEDIA_CLASS) == kSinkClass) {
      names += (names.empty() ? "  " : "\n  ") + global.Get(PW_KEY_NODE_NAME);
    }
  }
  return names;
}

bool PipeWireConnection::HasSink(const std::string& name) const {
  return std::any_of(globals_.begin(), globals_.end(), [&](const auto& global) {
    return global.second.Get(PW_KEY_MEDIA_CLASS) == kSinkClass &&
           global.second.Get(PW_KEY_NODE_NAME) == name;
  });
}

std::string PipeWireConnection::Global::Get(const std::string& key) const {
  const auto found = properties.find(key);
  return found == properties.end() ? "" : found->second;
}

void PipeWireConnection::OnError(void* data, uint32_t id, int, int result, const char*) {
  if (id == PW_ID_CORE && result == -EPIPE) {
    static_cast<PipeWireConnection*>(data)->gone_ = true;
  }
}

void PipeWireConnection::OnDone(void* data, uint32_t id, int sequence) {
  if (id == PW_ID_CORE) {
    static_cast<PipeWireConnection*>(data)->done_ = sequence;
  }
}

void PipeWireConnection::OnGlobal(void* data, uint32_t id, uint32_t, const char* type, uint32_t,
                                  const spa_dict* properties) {
  Global& global = static_cast<PipeWireConnection*>(data)->globals_[id];
  global = {type, {}};
  for (uint32_t i = 0; properties != nullptr && i < properties->n_items; ++i) {
    global.properties[properties->items[i].key] = properties->items[i].value;
  }
}

void PipeWireConnection::OnGlobalRemoved(void* data, uint32_t id) {
  static_cast<PipeWireConnection*>(data)->globals_.erase(id);
}

}  // namespace kelda::tools
