#pragma once

#include "hue_changeitem.h"
#include "hue_itemtype.h"
#include "hue_lightcolormode.h"
#include "hue_lighttype.h"
#include "hue_matrix3x3.h"
#include "hue_xygamut.h"
#include "hue_xypoint.h"

#include "kova/kovacommon/internalid.h"

#include <QByteArray>
#include <QElapsedTimer>
#include <QMap>
#include <QObject>
#include <QString>
#include <QTimer>
#include <QVariant>

namespace hue {

class CBridge;
class CDevice;

// One Hue light (or light group) as the service knows it. It keeps two copies of the visible
// state: what the bridge reported last (bridge state) and what the hub has been told (the "vel"
// state, whose changes are signalled). It also queues the change commands for the bridge, runs
// the dimming timers and holds the lamp's colour gamut with its conversion matrices.
class CLight : public QObject
{
    Q_OBJECT
public:
    // The direction flag of a running dim as the controller hands it over.
    enum DimDirection : qint32
    {
        DimUp = 0,
        DimDown = 1,
    };

    // The visible state of a light on the bridge's scales. Setters only store a value that
    // differs and, in a state that emits signals, then tell the owning light's listeners.
    class State
    {
    public:
        State(CLight* owner, bool emitSignals) : m_owner(owner), m_emitSignals(emitSignals) {}
        State(const State&) = default;
        // Assignment would take over the other state's owner and signal switch: use syncFrom.
        State& operator=(const State&) = delete;

        bool isValid() const { return m_valid; }
        bool emitsSignals() const { return m_emitSignals; }
        quint8 brightness() const { return m_brightness; } // 1..254
        quint8 lastOnBrightness() const { return m_lastOnBrightness; }
        // The brightness a switched-off light comes back with, as its bridge reports it.
        void setLastOnBrightness(quint8 brightness) { m_lastOnBrightness = brightness; }
        VNColorMode colorMode() const { return m_colorMode; }
        quint16 colorTemp() const { return m_colorTemp; } // mired
        float x() const { return m_x; }
        float y() const { return m_y; }
        quint16 hue() const { return m_hue; }              // 0..65535
        quint8 saturation() const { return m_saturation; } // 0..254

        // A non-zero brightness set while the light is on is remembered as lastOnBrightness,
        // so that switching on can go back to it.
        void setBrightness(quint8 brightness);
        void setColorMode(VNColorMode mode);
        void setColorTemp(quint16 mired);
        void setHue(quint16 hue);
        void setSaturation(quint8 saturation);
        // Changes of at most 0.001 in both coordinates are noise of the bridge's rounding and
        // leave the stored point alone.
        void setColor(float x, float y);
        // Takes over the other state through the setters (so that changes are signalled) and
        // marks this one valid.
        void syncFrom(const State& other);

        // The colour as packed 0xRRGGBB through the owner's gamut.
        uint colorAsRGB() const;
        // "rrggbb" of colorAsRGB().
        QString colorAsRGBString() const;
        // Packed hue/saturation/brightness of colorAsRGB().
        uint colorAsHSB() const;
        // The brightness on the hub's scale, 1..100 percent.
        double vnBrightness() const;

    private:
        void emitColorChanged();

        CLight* m_owner;
        bool m_emitSignals;
        bool m_valid = false;
        quint8 m_brightness = 0;
        quint8 m_lastOnBrightness = 254;
        VNColorMode m_colorMode = ColorModeNone;
        quint16 m_colorTemp = 369;
        float m_x = 0.0f;
        float m_y = 0.0f;
        quint16 m_hue = 0;
        quint8 m_saturation = 0;
    };

    using PendingCommands = QMap<ChangeItem, QVariant>;

    // The light's parent is its bridge. The description is the controller's one for the light
    // type (null when no controller exists or it has none for the type).
    CLight(CBridge* bridge, const QByteArray& hueId, const QByteArray& secondId, int lightNumber,
           ItemType itemType, LightType lightType);
    ~CLight() override;

    CBridge* bridge() const { return m_bridge; }
    CDevice* device() const { return m_device; }
    ItemType itemType() const { return m_itemType; }
    // The bridge's id of the light: the light number as text (API version 1) or the resource id.
    QByteArray hueId() const { return m_hueId; }
    QByteArray secondId() const { return m_secondId; }
    quint16 lightNumber() const { return m_lightNumber; }
    // "BEED" and eight upper-case hex digits of (bridge number << 16) | lightNumber.
    InternalId deviceSerial() const;

    State& bridgeState() { return m_bridgeState; }
    const State& bridgeState() const { return m_bridgeState; }
    State& velState() { return m_velState; }
    const State& velState() const { return m_velState; }
    // Copies the bridge state to the hub state, except while the light is off and the hub state
    // is already valid: the hub keeps showing a switched-off lamp's last colour and brightness.
    void syncVelFromBridge();

    bool isOn() const { return m_on; }
    void setOn(bool on);

    // When either flag is set, a colour-temperature command from the hub is not mirrored into
    // the hub state.
    bool isColorTempMirrorBlocked() const { return m_ctMirrorBlockedA || m_ctMirrorBlockedB; }

    // Product data as the bridge reports it; also looks the lamp up in the light-info table.
    void setMetadata(const QByteArray& productName, const QByteArray& manufacturer, const QByteArray& model,
                     const QByteArray& softwareVersion);
    QByteArray productName() const { return m_productName; }
    QByteArray manufacturer() const { return m_manufacturer; }
    QByteArray model() const { return m_model; }
    QByteArray softwareVersion() const { return m_softwareVersion; }
    quint32 lightInfoFlags() const { return m_lightInfoFlags; }

    // The colour gamut gives the conversion matrices; colours are clamped to the limits.
    void setGamut(const XYGamut& colourGamut, const XYGamut& limits, const XYPoint& whitepoint);
    const XYGamut& gamutLimits() const { return m_gamutLimits; }
    const XYPoint& whitepoint() const { return m_whitepoint; }
    const Matrix3x3& rgbToXyz() const { return m_rgbToXyz; }
    const Matrix3x3& xyzToRgb() const { return m_xyzToRgb; }

    int miredMin() const { return m_miredMin; }
    int miredMax() const { return m_miredMax; }
    void setMiredLimits(int miredMin, int miredMax);

    // 1, or 3 for a colour-only light.
    qint32 colourCapability() const { return m_colourCapability; }
    // Hub-scale brightness (percent) the command executor sends when switching on, by day and by night.
    double maxBrightnessDay() const { return m_maxBrightnessDay; }
    void setMaxBrightnessDay(double percent) { m_maxBrightnessDay = percent; }
    double maxBrightnessNight() const { return m_maxBrightnessNight; }
    void setMaxBrightnessNight(double percent) { m_maxBrightnessNight = percent; }
    // How long a timed start/stop keeps the light on.
    double timerDurationSeconds() const { return m_timerDurationSeconds; }
    void setTimerDurationSeconds(double seconds) { m_timerDurationSeconds = seconds; }

    // The colour mode the command executor is sending, and whether it has just changed it.
    VNColorMode requestedColorMode() const { return m_requestedColorMode; }
    void setRequestedColorMode(VNColorMode mode) { m_requestedColorMode = mode; }
    bool isColorModeChanged() const { return m_colorModeChanged; }
    void setColorModeChanged(bool changed) { m_colorModeChanged = changed; }

    // Change commands not yet sent; a burst of hub writes is merged here and sent when the
    // command timer fires.
    PendingCommands& pendingCommands() { return m_pendingCommands; }
    const PendingCommands& pendingCommands() const { return m_pendingCommands; }
    // Replaces pending hue/saturation by the equivalent x/y, through the light's gamut; the
    // hub state supplies what is not pending. Pending brightness stays as it is.
    void convertColorCommands();
    // True when a pending command switches the light off.
    bool isGoingToTurnOff() const;
    // 200 ms single shot; carries the property "hueLightID" = hueId.
    // Single shot: the light's pending changes go out this long after the last of a burst.
    static constexpr int kCommandDelayMs = 200;
    QTimer* commandTimer() const { return m_commandTimer; }
    QElapsedTimer& lastChange() { return m_lastChange; }

    // Continuous dimming, stepped by the controller on each tick of the dim timer (500 ms,
    // repeating; carries the property "hueLightSerial" = device serial as text).
    void startDimming(DimDirection direction);
    void stopDimming();
    QTimer* dimTimer() const { return m_dimTimer; }
    DimDirection dimDirection() const { return m_dimDirection; }
    qint32 dimStep() const { return m_dimStep; }
    float dimStartBrightness() const { return m_dimStartBrightness; }

    // Timed dimming towards `value` percent over `duration` tenths of a second; the end is
    // signalled as timedDimmingChanged(value, 0).
    void startTimedDimming(int value, int duration);
    void setTimedDimming(double value, int duration);
    quint8 timedDimmingValue() const { return m_timedDimmingValue; }
    quint16 timedDimmingDuration() const { return m_timedDimmingDuration; }
    const QTimer& timedDimmingTimer() const { return m_timedDimmingTimer; }

signals:
    void onChanged();
    void brightnessChanged();
    void colorChanged();
    void timedDimmingChanged(double value, int duration);

public slots:
    void onTimedDimmingExpired();

private:
    // Fields whose users come with the bridge and controller code are carried with their
    // initial values and marked [[maybe_unused]].
    CBridge* m_bridge;
    CDevice* m_device;
    State m_bridgeState;
    State m_velState;
    ItemType m_itemType;
    [[maybe_unused]] qint32 m_carriedInt = 1;
    bool m_ctMirrorBlockedA = false;
    bool m_ctMirrorBlockedB = false;
    [[maybe_unused]] QVariantMap m_carriedMap;
    QByteArray m_hueId;
    [[maybe_unused]] QByteArray m_carriedId;
    QByteArray m_secondId;
    quint16 m_lightNumber;
    [[maybe_unused]] QByteArray m_carriedTextA;
    [[maybe_unused]] QByteArray m_carriedTextB;
    QByteArray m_manufacturer;
    QByteArray m_model;
    QByteArray m_softwareVersion;
    QByteArray m_productName;
    [[maybe_unused]] QByteArray m_carriedTextC;
    quint32 m_lightInfoFlags = 0;
    bool m_on = false;
    [[maybe_unused]] bool m_carriedFlagA = false;
    [[maybe_unused]] bool m_carriedFlagB = false;
    QTimer* m_dimTimer;
    DimDirection m_dimDirection = DimDown;
    qint32 m_dimStep = 0;
    float m_dimStartBrightness = 0.0f;
    QTimer m_timedDimmingTimer;
    quint16 m_timedDimmingDuration = 0;
    quint8 m_timedDimmingValue = 0;
    [[maybe_unused]] quint8 m_carriedByte = 0;
    qint32 m_colourCapability;
    double m_maxBrightnessDay = 100.0;
    double m_maxBrightnessNight = 100.0;
    double m_timerDurationSeconds = 60.0;
    VNColorMode m_requestedColorMode = ColorModeNone;
    bool m_colorModeChanged = false;
    QTimer* m_commandTimer;
    PendingCommands m_pendingCommands;
    QElapsedTimer m_lastChange;
    XYGamut m_gamutLimits;
    XYPoint m_whitepoint;
    Matrix3x3 m_rgbToXyz;
    Matrix3x3 m_xyzToRgb;
    qint32 m_miredMin = 153;
    qint32 m_miredMax = 454;
};

} // namespace hue
