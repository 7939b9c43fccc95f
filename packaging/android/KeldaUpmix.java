package com.example.keldaupmix;

import android.content.BroadcastReceiver;
import android.content.Context;
import android.content.Intent;
import android.media.audiofx.AudioEffect;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.nio.charset.StandardCharsets;
import java.util.UUID;

/**
 * The effect's parameters for the system application that owns it; copy it into the
 * application, under its package. Needs the platform's hidden API (platform_apis: true) and
 * MODIFY_AUDIO_SETTINGS. One object controls the instance of one audio session.
 */
public final class KeldaUpmix implements AutoCloseable {
    public static final int MODE_OFF = 0, MODE_MUSIC = 1, MODE_CINEMA = 2, MODE_AUTO = 3;
    public static final int HRTF_STANDARD = 1, HRTF_PERSONALIZED = 2;

    private static final int PARAM_MODE = 0;
    private static final int PARAM_WIRED_HRTF = 1;
    private static final int PARAM_BLUETOOTH_HRTF = 2;
    private static final int PARAM_RELOAD_TUNED_APP_LIST = 3;
    private static final int PARAM_APP_PACKAGE = 10;

    private static final UUID ID = UUID.fromString("3f8a61c2-9d47-4b1e-8c05-d2e97a4b6f10");
    /** Above that of applications, so that none takes the control away. */
    private static final int PRIORITY = 1000;

    private final AudioEffect effect;

    /** Session 0 is everything that its output plays. */
    public KeldaUpmix(int session) {
        effect = new AudioEffect(ID, ID, PRIORITY, session);
        effect.setEnabled(true);
    }

    public int setMode(int mode) {
        return set(PARAM_MODE, mode);
    }

    public int getMode() {
        byte[] value = new byte[4];
        int status = effect.getParameter(word(PARAM_MODE), value);
        return status < 0 ? status
                : ByteBuffer.wrap(value).order(ByteOrder.LITTLE_ENDIAN).getInt();
    }

    public int setWiredHrtf(int type) {
        return set(PARAM_WIRED_HRTF, type);
    }

    public int setBluetoothHrtf(int type) {
        return set(PARAM_BLUETOOTH_HRTF, type);
    }

    public int reloadTunedApps() {
        return set(PARAM_RELOAD_TUNED_APP_LIST, 0);
    }

    /** The application that plays now; {@code film} has one that is not listed play as cinema. */
    public int setPlayingApp(String packageName, boolean film) {
        byte[] text = (packageName + '&' + (film ? '1' : '0')).getBytes(StandardCharsets.UTF_8);
        return effect.setParameter(word(PARAM_APP_PACKAGE), text);
    }

    @Override
    public void close() {
        effect.release();
    }

    private int set(int parameter, int value) {
        return effect.setParameter(word(parameter), word(value));
    }

    private static byte[] word(int value) {
        return ByteBuffer.allocate(4).order(ByteOrder.LITTLE_ENDIAN).putInt(value).array();
    }

    /** What kelda-adb sends; register it on debuggable builds only. */
    public final class Receiver extends BroadcastReceiver {
        public static final String ACTION = "vendor.kelda.action.SET_PARAMETER";

        @Override
        public void onReceive(Context context, Intent intent) {
            set(intent.getIntExtra("parameter", PARAM_MODE), intent.getIntExtra("value", MODE_OFF));
        }
    }
}
