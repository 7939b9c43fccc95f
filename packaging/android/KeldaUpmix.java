package com.example.keldaupmix;

import android.Manifest;
import android.content.BroadcastReceiver;
import android.content.Context;
import android.content.Intent;
import android.content.IntentFilter;
import android.media.AudioManager;
import android.media.audiofx.AudioEffect;
import android.util.Log;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.nio.charset.StandardCharsets;
import java.util.UUID;

/**
 * The effect, for the system application that owns it; copy this file into the application,
 * under its package. It keeps what the listener has chosen, and one instance of the effect on
 * the output mix while the mode is another than off. An instance does not survive the audio
 * server: when that has started again, a new one takes over the choices.
 *
 * <p>Needs the platform's hidden API (platform_apis: true) and the permissions
 * MODIFY_AUDIO_SETTINGS (the output mix) and MODIFY_AUDIO_ROUTING (news of the audio server).
 * The process has to live as long as the effect is to be heard. Setters return
 * AudioEffect.SUCCESS or one of its errors; the choice is kept either way.
 */
public final class KeldaUpmix implements AutoCloseable {
    public static final int MODE_OFF = 0, MODE_MUSIC = 1, MODE_CINEMA = 2, MODE_AUTO = 3;
    public static final int HRTF_STANDARD = 1, HRTF_PERSONALIZED = 2;

    private static final String TAG = "KeldaUpmix";
    private static final int PARAM_MODE = 0;
    private static final int PARAM_WIRED_HRTF = 1;
    private static final int PARAM_BLUETOOTH_HRTF = 2;
    private static final int PARAM_RELOAD_TUNED_APP_LIST = 3;
    private static final int PARAM_APP_PACKAGE = 10;

    private static final UUID ID = UUID.fromString("3f8a61c2-9d47-4b1e-8c05-d2e97a4b6f10");
    /** Above that of applications, so that none takes the control away. */
    private static final int PRIORITY = 1000;
    /**
     * The output mix. On the session of a player the framework has an effect add its output to
     * what the other players have left in the buffer. This one overwrites it.
     */
    private static final int SESSION = 0;

    private final AudioManager audioManager;
    /** Null while the mode is off, and while there is no audio server. */
    private AudioEffect effect;
    private int mode = MODE_OFF;
    /** Null until they are chosen: the tuning says what the effect begins with. */
    private byte[] wiredHrtf, bluetoothHrtf, playingApp;

    public KeldaUpmix(Context context) {
        audioManager = context.getSystemService(AudioManager.class);
        audioManager.setAudioServerStateCallback(context.getMainExecutor(),
                new AudioManager.AudioServerStateCallback() {
                    @Override
                    public void onAudioServerDown() {
                        release();
                    }

                    @Override
                    public void onAudioServerUp() {
                        release();
                        setMode(getMode());
                    }
                });
    }

    /** Off gives the instance back: while one is enabled, nothing plays by compressed offload. */
    public synchronized int setMode(int mode) {
        this.mode = mode;
        if (mode == MODE_OFF) {
            release();
            return AudioEffect.SUCCESS;
        }
        return effect == null ? create() : set(PARAM_MODE, word(mode));
    }

    public synchronized int getMode() {
        return mode;
    }

    public synchronized int setWiredHrtf(int type) {
        wiredHrtf = word(type);
        return set(PARAM_WIRED_HRTF, wiredHrtf);
    }

    public synchronized int setBluetoothHrtf(int type) {
        bluetoothHrtf = word(type);
        return set(PARAM_BLUETOOTH_HRTF, bluetoothHrtf);
    }

    /** The application that plays now; {@code film} has one that is not listed play as cinema. */
    public synchronized int setPlayingApp(String packageName, boolean film) {
        playingApp = (packageName + '&' + (film ? '1' : '0')).getBytes(StandardCharsets.UTF_8);
        return set(PARAM_APP_PACKAGE, playingApp);
    }

    public synchronized int reloadTunedApps() {
        return set(PARAM_RELOAD_TUNED_APP_LIST, word(0));
    }

    @Override
    public void close() {
        audioManager.clearAudioServerStateCallback();
        release();
    }

    private int create() {
        try {
            effect = new AudioEffect(ID, ID, PRIORITY, SESSION);
        } catch (RuntimeException e) {
            Log.e(TAG, "no instance of the effect", e);
            return AudioEffect.ERROR_NO_INIT;
        }
        if (wiredHrtf != null) set(PARAM_WIRED_HRTF, wiredHrtf);
        if (bluetoothHrtf != null) set(PARAM_BLUETOOTH_HRTF, bluetoothHrtf);
        if (playingApp != null) set(PARAM_APP_PACKAGE, playingApp);
        int status = set(PARAM_MODE, word(mode));
        return status == AudioEffect.SUCCESS ? effect.setEnabled(true) : status;
    }

    private synchronized void release() {
        if (effect != null) effect.release();
        effect = null;
    }

    private int set(int parameter, byte[] value) {
        return effect == null ? AudioEffect.SUCCESS : effect.setParameter(word(parameter), value);
    }

    private static byte[] word(int value) {
        return ByteBuffer.allocate(4).order(ByteOrder.LITTLE_ENDIAN).putInt(value).array();
    }

    /** Takes what kelda-adb sends; for debuggable builds only. */
    public final class Receiver extends BroadcastReceiver {
        public static final String ACTION = "vendor.kelda.action.SET_PARAMETER";

        /**
         * The system delivers such broadcasts to no receiver of a manifest. The sender, adb's
         * shell, is another application, hence "exported"; it holds DUMP, which others do not.
         */
        public void register(Context context) {
            context.registerReceiver(this, new IntentFilter(ACTION), Manifest.permission.DUMP,
                    null, Context.RECEIVER_EXPORTED);
        }

        @Override
        public void onReceive(Context context, Intent intent) {
            int value = intent.getIntExtra("value", 0);
            switch (intent.getIntExtra("parameter", -1)) {
                case PARAM_MODE:
                    setMode(value);
                    break;
                case PARAM_WIRED_HRTF:
                    setWiredHrtf(value);
                    break;
                case PARAM_BLUETOOTH_HRTF:
                    setBluetoothHrtf(value);
                    break;
                case PARAM_RELOAD_TUNED_APP_LIST:
                    reloadTunedApps();
                    break;
            }
        }
    }
}
