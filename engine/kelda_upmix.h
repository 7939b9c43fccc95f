#ifndef KELDA_ENGINE_KELDA_UPMIX_H_
#define KELDA_ENGINE_KELDA_UPMIX_H_

#include <array>
#include <list>
#include <memory>
#include <string>

#include "engine/plan.h"
#include "pipeline/audio_process_sequencer.h"
#include "pipeline/audio_processor.h"
#include "platform/nonblocking.h"
#include "settings/tuned_app_list.h"
#include "settings/upmix_types.h"

namespace kelda {

// The engine of one effect instance: keeps the requested mode, the output device, the
// listener's HRTF and the playing application's mode, has engine/plan.h decide from them which
// processors run and which tuning files they load, and does that.
//
// Threads: Process is called by the audio thread, everything else by the control
// thread; the calls never overlap. Failures of files and of the signal library are
// logged where they happen; the engine runs with whatever could be loaded. A control
// call may throw std::bad_alloc; it has changed nothing then.
class KeldaUpmix {
 public:
  KeldaUpmix();
  KeldaUpmix(const KeldaUpmix&) = delete;
  KeldaUpmix& operator=(const KeldaUpmix&) = delete;
  virtual ~KeldaUpmix();

  // The modes' and the device's initial values, and the HRTF types that the
  // configuration files name. Returns 0.
  int Initialize();
  void CreateProcessorChain();
  void SetProcessorChain();
  void DestoryProcessorChain();

  // `frames` interleaved stereo frames from `in` to `out`, which may be the same.
  void Process(const float* in, float* out, unsigned frames) KELDA_NONBLOCKING;

  // The mode asked for, Auto included. Returns 0.
  int SetMode(UpmixMode mode);
  // Runs `mode`, or Off while the device is no headphone. Returns 0.
  int ChangeActualMode(UpmixMode mode);
  UpmixMode GetMode() const { return settings_.requested_mode; }

  // The output in use. Sends the tuning files of a headphone's HRTF again, changed
  // or not. Returns 0.
  int SetDevice(AudioDeviceType type);
  // Sends the processors the tuning files of a device's HRTF. Returns 0, or 1 with
  // nothing sent if the device is no headphone.
  int SetHrtf(AudioDeviceType type, HrtfType hrtf);
  // The listener's HRTF on one kind of output; takes effect at once if that is the
  // output in use. Return 0.
  int SetBluetoothHrtf(HrtfType hrtf);
  int SetWiredHrtf(HrtfType hrtf);

  // Reads the list of tuned applications again; the current application's mode
  // stays until the next SetAppPackage. Returns 0.
  int ReloadTunedAppList();
  // The application now playing. Its mode is the tuned list's, else Cinema if
  // `flag` is set, else Music; it is applied at once in Auto and kept otherwise.
  void SetAppPackage(const std::string& package, bool flag);

  // Drops all signal history and everything queued.
  void Reset();
  // Appends the report of the processing chain to *out.
  void Dumpsys(std::string* out) const;
  // Captures the output to a file, for `request` seconds at most.
  void StartPcmDump(unsigned request);
  void StopPcmDump();

 private:
  // Does what was decided: the one place that switches stages and sends them parameters.
  void Apply(const Plan& plan);
  void Switch(const StageSwitch& stage_switch);
  void Send(ParameterSet set);

  AudioProcessSequencer sequencer_;
  std::list<AudioProcessor*> chain_;
  std::array<std::unique_ptr<AudioProcessor>, kStages.size()> stages_;  // by Stage
  EngineSettings settings_;
  UpmixMode actual_mode_ = UpmixMode::Off;
  TunedAppList tuned_apps_;
  // What each parameter set is as the stages take it. Made at construction, so that no command
  // can run out of memory between its changes.
  std::array<ParameterMap, kParameterSets> parameters_;
};

}  // namespace kelda

#endif  // KELDA_ENGINE_KELDA_UPMIX_H_
