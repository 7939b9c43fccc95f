#ifndef KELDA_UPMIX_LIB_HANDLES_HANDLE_COMPONENT_H_
#define KELDA_UPMIX_LIB_HANDLES_HANDLE_COMPONENT_H_

#include <atomic>
#include <cstdint>
#include <memory>
#include <new>
#include <string>
#include <utility>

#include "upmix-lib/base/status.h"
#include "upmix-lib/files/config_file.h"
#include "upmix-lib/handles/handle_table.h"

namespace kelda::upmix_lib {

// What the components held by a 32-bit handle share: the life of an instance.
//
//   Create -> created -- Initialize --> ready -- Close --> closed -- Destroy
//                                         ^------ Initialize -----'
//
// Processing, Flush and Close need a ready instance; Destroy takes one at any stage.
//
// Processor has
//   static Status Load(const std::string& path, std::unique_ptr<Processor>& processor);
//       reads a data file; may throw std::bad_alloc
//   void Flush();  clears the signal history
// and may have
//   void CrossfadeTo(std::unique_ptr<Processor> next);
//       takes over the data of `next` without a click; Initialize of a ready instance
//       then reads the files again, and on failure leaves the instance as it was
template <typename Processor>
class HandleComponent {
 public:
  constexpr explicit HandleComponent(HandleKind kind) : instances_(kind) {}

  // Control. Writes *handle on success only.
  Status Create(uint32_t* handle, const char* directory, const char* file) {
    if (handle == nullptr) {
      return kNullPointer;
    }
    try {
      std::string path;
      if (const Status status = ReadConfigFile(directory, file, path); status != kOk) {
        return status;
      }
      auto instance = std::make_unique<Instance>();
      instance->directory = directory;
      instance->file = file;
      if (const Status status = Processor::Load(path, instance->processor); status != kOk) {
        return status;
      }
      const uint32_t created = instances_.Insert(std::move(instance));
      if (created == 0) {
        return kTooManyInstances;
      }
      *handle = created;
      return kOk;
    } catch (const std::bad_alloc&) {
      return kOutOfMemory;
    }
  }

  // Control.
  Status Initialize(uint32_t handle) {
    Instance* instance = instances_.Find(handle);
    if (instance == nullptr) {
      return kBadHandle;
    }
    if constexpr (kReloads) {
      if (instance->stage == Stage::kReady) {
        return instance->last_failure = Reload(*instance);
      }
    }
    instance->processor->Flush();
    instance->stage = Stage::kReady;
    instance->last_failure = kOk;
    return kOk;
  }

  // Control.
  Status Flush(uint32_t handle) {
    return WithReady(handle, [](Processor& processor) {
      processor.Flush();
      return kOk;
    });
  }

  // Calls `work(Processor&)`, which returns a Status, for a ready instance, and keeps
  // its failure for LastError. Control or audio, as `work` is.
  template <typename Work>
  Status WithReady(uint32_t handle, Work&& work) {
    Instance* instance = instances_.Find(handle);
    if (instance == nullptr) {
      return kBadHandle;
    }
    const Status status = instance->stage == Stage::kReady    ? work(*instance->processor)
                          : instance->stage == Stage::kClosed ? kClosed
                                                              : kNotInitialized;
    if (status != kOk) {
      instance->last_failure = status;
    }
    return status;
  }

  // Writes the class and the status of the instance's last failure since its
  // initialisation; 0 and 0 if there was none. Any thread.
  Status LastError(uint32_t handle, int32_t* error, int32_t* detail) const {
    if (error == nullptr || detail == nullptr) {
      return kNullPointer;
    }
    const Instance* instance = instances_.Find(handle);
    if (instance == nullptr) {
      return kBadHandle;
    }
    const Status failure = instance->last_failure;
    *error = static_cast<int32_t>(ClassOf(failure));
    *detail = failure;
    return kOk;
  }

  // Control.
  Status Close(uint32_t handle) {
    const Status status = WithReady(handle, [](Processor&) { return kOk; });
    if (status == kOk) {
      instances_.Find(handle)->stage = Stage::kClosed;
    }
    return status;
  }

  // Control. Clears *handle on success.
  Status Destroy(uint32_t* handle) {
    if (handle == nullptr) {
      return kNullPointer;
    }
    if (instances_.Remove(*handle) == nullptr) {
      return kBadHandle;
    }
    *handle = 0;
    return kOk;
  }

 private:
  static constexpr bool kReloads =
      requires(Processor & processor, std::unique_ptr<Processor> next) {
    processor.CrossfadeTo(std::move(next));
  };

  enum class Stage { kCreated, kReady, kClosed };

  struct Instance {
    std::string directory, file;  // as created from
    std::unique_ptr<Processor> processor;
    Stage stage = Stage::kCreated;
    std::atomic<Status> last_failure{kOk};
  };

  static Status Reload(Instance& instance) {
    try {
      std::string path;
      const Status named = ReadConfigFile(instance.directory.c_str(), instance.file.c_str(), path);
      if (named != kOk) {
        return named;
      }
      std::unique_ptr<Processor> next;
      const Status loaded = Processor::Load(path, next);
      if (loaded != kOk) {
        return loaded;
      }
      instance.processor->CrossfadeTo(std::move(next));
      return kOk;
    } catch (const std::bad_alloc&) {
      return kOutOfMemory;
    }
  }

  HandleTable<Instance> instances_;
};

}  // namespace kelda::upmix_lib

#endif  // KELDA_UPMIX_LIB_HANDLES_HANDLE_COMPONENT_H_
