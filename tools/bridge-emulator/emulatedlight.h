#pragma once

#include "lightcolor.h"

#include <optional>
#include <string>

namespace bridgeemu {

// The five kinds of Hue light, by what they can do.
enum class LightKind
{
    OnOff,
    Dimmable,
    ColorTemperature,
    Color,
    ExtendedColor
};

// The parameters a change may carry. Which of them a light accepts depends on its kind.
enum class LightParam
{
    On,
    Bri,
    Hue,
    Sat,
    Xy,
    Ct,
    Alert,
    Effect,
    TransitionTime,
    BriInc,
    HueInc,
    SatInc,
    CtInc,
    XyInc
};

bool kindSupports(LightKind kind, LightParam param);
bool kindHasColor(LightKind kind);            // hue, saturation, xy
bool kindHasColorTemperature(LightKind kind); // ct

enum class ColorMode
{
    None,
    HueSaturation,
    XY,
    ColorTemperature
};

// What a light is: fixed at creation, like the facts a real lamp reports about itself.
struct LightDescription
{
    LightKind kind = LightKind::ExtendedColor;
    std::string modelId;
    std::string productName;
    std::string manufacturer = "Signify Netherlands B.V.";
    std::string swVersion;
    std::string archetype;
    std::string uniqueId; // "00:17:88:01:xx:xx:xx:xx-0b"
    GamutType gamut = GamutType::None;
    int ctMin = 0; // mired; 0 for lights without colour temperature
    int ctMax = 0;
    int maxLumen = 0;
    int minDimLevel = 0;
};

// What a light is doing now.
struct LightState
{
    bool on = false;
    int bri = 254;
    int hue = 8418;
    int sat = 140;
    XY xy{0.4573, 0.41};
    int ct = 366;
    ColorMode colorMode = ColorMode::None;
    std::string alert = "none";
    std::string effect = "none";
    bool reachable = true;
};

// A change as a set of optional values, independent of any API's JSON. Values are taken as
// valid for their type; apply() clamps them to what the light can do.
struct LightChange
{
    std::optional<bool> on;
    std::optional<int> bri, hue, sat, ct;
    std::optional<XY> xy;
    std::optional<int> briInc, hueInc, satInc, ctInc;
    std::optional<XY> xyInc;
    std::optional<std::string> alert, effect;
    std::optional<int> transitionTime;
    std::optional<bool> reachable;

    bool empty() const;
};

class EmulatedLight
{
public:
    // How a change arrives: as an API command, which a light that is (or stays) off ignores
    // except for switching on, or physically (a wall switch, a power cut), which always applies.
    enum class Source
    {
        Command,
        Physical
    };

    EmulatedLight(std::string id, std::string name, LightDescription description);

    const std::string& id() const { return m_id; }
    const std::string& name() const { return m_name; }
    void setName(std::string name) { m_name = std::move(name); }
    const LightDescription& description() const { return m_description; }
    LightKind kind() const { return m_description.kind; }
    const LightState& state() const { return m_state; }
    bool supports(LightParam param) const { return kindSupports(kind(), param); }

    // Applies the parameters the light supports and ignores the others. The colour mode follows
    // the colour set last in the order hue/saturation, colour temperature, xy; the other colour
    // representations are brought in line with it.
    void apply(const LightChange& change, Source source);
    // Replaces the whole state as it is, for stand-ins that mirror a stored state.
    void restoreState(const LightState& state) { m_state = state; }

private:
    void applyColorTemperature(int mired);
    void applyXY(XY point);
    void applyHueSaturation(int hue, int saturation);

    std::string m_id;
    std::string m_name;
    LightDescription m_description;
    LightState m_state;
};

} // namespace bridgeemu
