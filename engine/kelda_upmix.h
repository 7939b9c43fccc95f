#ifndef KELDA_ENGINE_KELDA_UPMIX_H_
#define KELDA_ENGINE_KELDA_UPMIX_H_

#include <list>
#include <memory>
#include <string>

#include "pipeline/audio_process_sequencer.h"
#include "pipeline/pass_through_processor.h"
#include "platform/nonblocking.h"
#include "processors/headphone_equalizer_processor.h"
#include "processors/upl_audio_processor.h"
#include "processors/upmix_cinema_processor.h"
#include "processors/upmix_music_processor.h"
#include "settings/tuned_app_list.h"
#include "settings/upmix_types.h"

namespace kelda {

// The engine of one effect instance: decides from the requested mode, the output
// device, the listener's HRTF and the playing application which processors run
// and which tuning files they load.
//
//   requested mode ──┐
//   application ─────┼─► actual mode ─► which processors run, fade
//   output device ───┤
//   HRTF per device ─┴─► tuning files, headphone equalizer on or off
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
  UpmixMode GetMode() const { return requested_mode_; }

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
  // What the processors load for a kind of headphone, by the keys that they know. An
  // empty equalizer path says that none applies.
  struct HeadphoneFiles {
    explicit HeadphoneFiles(const std::string& device_name);
    static ParameterMap Of(const std::string& device_name, bool personalized);
    const ParameterMap standard, personalized;
  };

  UpmixMode ModeToRun() const;

  AudioProcessSequencer sequencer_;
  std::list<AudioProcessor*> chain_;
  std::unique_ptr<UpmixMusicProcessor> music_;
  std::unique_ptr<UpmixCinemaProcessor> cinema_;
  std::unique_ptr<PassThroughProcessor> pass_through_;
  std::unique_ptr<UplAudioProcessor> upl_;
  std::unique_ptr<HeadphoneEqualizerProcessor> hp_eq_;
  UpmixMode requested_mode_;
  UpmixMode actual_mode_;
  UpmixMode app_mode_;
  AudioDeviceType device_;
  HrtfType bluetooth_hrtf_;
  HrtfType wired_hrtf_;
  std::string app_package_;
  TunedAppList tuned_apps_;

  // Made at construction, so that no command can run out of memory between its changes.
  const HeadphoneFiles wired_files_, bluetooth_files_;
  const ParameterMap music_level_, cinema_level_;  // the level control's file
};

}  // namespace kelda

#endif  // KELDA_ENGINE_KELDA_UPMIX_H_
