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

// The engine of one effect instance. It keeps the requested mode, the output device, the
// listener's HRTF and the playing application's mode. From these engine/plan.h decides which
// processors run and which tuning files they load, and the engine carries that out.
//
// Threads: the audio thread, which calls the instance's process, calls Process; the control
// thread, which creates and commands the instance, calls everything else. Their calls never
// overlap. Failures of files and of the signal library are logged where they happen; the
// engine runs with what could be loaded. A control call may throw std::bad_alloc; it has
// changed nothing then.
//
//   KeldaUpmix engine;
//   engine.SetDevice(AudioDeviceType::Wired);
//   engine.SetMode(UpmixMode::Music);
//   engine.Process(in, out, 1024);
class KeldaUpmix {
 public:
  KeldaUpmix();
  KeldaUpmix(const KeldaUpmix&) = delete;
  KeldaUpmix& operator=(const KeldaUpmix&) = delete;
  virtual ~KeldaUpmix();

  // Sets modes and device to their initial values, and the HRTF types to those that the
  // configuration files name. Returns 0.
  int Initialize();
  void CreateProcessorChain();
  void SetProcessorChain();
  void DestoryProcessorChain();

  // `frames` interleaved stereo frames from `in` to `out`, which may be the same.
  void Process(const float* in, float* out, unsigned frames) KELDA_NONBLOCKING;

  // Sets the requested mode, which may be Auto. Returns 0.
  int SetMode(UpmixMode mode);
  // Runs `mode`, or Off while the device is no headphone. Returns 0.
  int ChangeActualMode(UpmixMode mode);
  UpmixMode GetMode() const { return settings_.requested_mode; }

  // Sets the output in use. If it is a headphone, sends its tuning files, even if it was in
  // use already. Returns 0.
  int SetDevice(AudioDeviceType type);
  // Sends the processors the tuning files of a device's HRTF. Returns 0, or 1 with
  // nothing sent if the device is no headphone.
  int SetHrtf(AudioDeviceType type, HrtfType hrtf);
  // Set the listener's HRTF on one kind of output; takes effect at once if that is the
  // output in use. Return 0.
  int SetBluetoothHrtf(HrtfType hrtf);
  int SetWiredHrtf(HrtfType hrtf);

  // Reads the list of tuned applications again; the current application's mode
  // stays until the next SetAppPackage. Returns 0.
  int ReloadTunedAppList();
  // Sets the application that plays. Its mode is the tuned list's, else Cinema if `flag` is
  // set, else Music; it is applied at once in Auto and kept otherwise.
  void SetAppPackage(const std::string& package, bool flag);

  // Drops what is queued and what the stages can drop: the music upmix keeps its history until it
  // is loaded, and the level control its gain.
  void Reset();
  // Appends the report of the processing chain to *out.
  void Dumpsys(std::string* out) const;
  // Captures the output to a file, for `request` seconds at most.
  void StartPcmDump(unsigned request);
  void StopPcmDump();

 private:
  // Carries out a plan. Nothing else switches stages or sends them parameters after construction.
  void Apply(const Plan& plan);
  void Switch(const StageSwitch& stage_switch);
  void Send(ParameterSet set);

  AudioProcessSequencer sequencer_;
  std::list<AudioProcessor*> chain_;
  std::array<std::unique_ptr<AudioProcessor>, kStages.size()> stages_;  // by Stage
  EngineSettings settings_;
  UpmixMode actual_mode_ = UpmixMode::Off;
  TunedAppList tuned_apps_;
  // Each parameter set in the form that the stages take. Made at construction, so that no command
  // can run out of memory between its changes.
  std::array<ParameterMap, kParameterSets> parameters_;
};

}  // namespace kelda

#endif  // KELDA_ENGINE_KELDA_UPMIX_H_
