#include "lightset.h"

#include <cstdlib>

namespace bridgeemu {

std::optional<std::vector<LightSpec>> parseLightSet(const std::string& text, std::string* error)
{
    std::vector<LightSpec> specs;
    std::size_t start = 0;
    while (start <= text.size()) {
        const std::size_t comma = text.find(',', start);
        const std::string item =
            text.substr(start, comma == std::string::npos ? std::string::npos : comma - start);
        start = comma == std::string::npos ? text.size() + 1 : comma + 1;
        if (item.empty())
            continue;
        const std::size_t colon = item.find(':');
        std::string kindText = item.substr(0, colon);
        int count = 1;
        if (colon != std::string::npos) {
            const std::string countText = item.substr(colon + 1);
            if (countText.empty() || countText.size() > 3 ||
                countText.find_first_not_of("0123456789") != std::string::npos) {
                if (error)
                    *error = "bad count in \"" + item + "\"";
                return std::nullopt;
            }
            count = std::atoi(countText.c_str());
        }
        LightSpec wanted;
        const std::size_t dash = kindText.find('-');
        if (dash != std::string::npos) {
            const std::string gamut = kindText.substr(dash + 1);
            kindText.resize(dash);
            if (gamut == "a" || gamut == "A")
                wanted.gamut = GamutType::A;
            else if (gamut == "b" || gamut == "B")
                wanted.gamut = GamutType::B;
            else if (gamut == "c" || gamut == "C")
                wanted.gamut = GamutType::C;
            else {
                if (error)
                    *error = "unknown gamut in \"" + item + "\" (a, b or c)";
                return std::nullopt;
            }
        }
        const auto kind = lightKindFromName(kindText);
        if (!kind || (wanted.gamut && !kindHasColor(*kind))) {
            if (error)
                *error = "unknown light kind \"" + item +
                         "\" (onoff, dimmable, ct, color[-a|-b|-c], extended[-a|-b|-c])";
            return std::nullopt;
        }
        wanted.kind = *kind;
        specs.insert(specs.end(), static_cast<std::size_t>(count), wanted);
    }
    return specs;
}

std::vector<LightSpec> defaultLightSet()
{
    std::string ignored;
    return *parseLightSet("extended:3,ct:2,dimmable:2,onoff:1,color:1,color-b:1", &ignored);
}

void addDefaultGroups(LightStore& store)
{
    const std::vector<EmulatedLight*> all = store.lights();
    if (all.empty())
        return;
    std::vector<std::string> living, kitchen, colors;
    for (std::size_t i = 0; i < all.size(); ++i) {
        (i < (all.size() + 1) / 2 ? living : kitchen).push_back(all[i]->id());
        if (kindHasColor(all[i]->kind()))
            colors.push_back(all[i]->id());
    }
    const std::string livingId = store.addGroup("Living room", GroupType::Room, living);
    store.group(livingId)->roomClass = "Living room";
    if (!kitchen.empty()) {
        const std::string kitchenId = store.addGroup("Kitchen", GroupType::Room, kitchen);
        store.group(kitchenId)->roomClass = "Kitchen";
    }
    if (!colors.empty())
        store.addGroup("Colour lights", GroupType::LightGroup, colors);
}

} // namespace bridgeemu
