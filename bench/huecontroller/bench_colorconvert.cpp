// Conversions per second between packed RGB and CIE xy for one lamp with gamut C, as every
// poll result and every colour command of such a lamp goes through them. The lamp's matrices
// are computed once, as the light model caches them; the inputs cycle through a fixed set so
// that some colours need clamping into the gamut and some do not.
//
// Run: bench_colorconvert   (five repetitions, medians reported)
#include <huecontroller/hue_colorconvert.h>

#include <benchmark/benchmark.h>

#include <vector>

namespace {

using hue::ColorConvert;

struct GamutCLamp
{
    hue::XYGamut limits = ColorConvert::lookupGamutLimits("C", "", "");
    hue::Matrix3x3 rgbToXyz =
        ColorConvert::calculateRGBtoXYZMatrix(ColorConvert::gamutC(), ColorConvert::whitepointC());
    hue::Matrix3x3 xyzToRgb = rgbToXyz.inverse();
};

// 4096 colours spread over the RGB cube.
std::vector<uint> rgbInputs()
{
    std::vector<uint> colours;
    for (uint r = 0; r < 256; r += 17)
        for (uint g = 0; g < 256; g += 17)
            for (uint b = 0; b < 256; b += 17)
                colours.push_back(r << 16 | g << 8 | b);
    return colours;
}

struct XYInput
{
    float x, y;
    int bri;
};

// A 64 x 64 grid over 0.01..0.8: most points lie outside gamut C and get clamped first.
std::vector<XYInput> xyInputs()
{
    std::vector<XYInput> points;
    for (int i = 0; i < 64; ++i)
        for (int j = 0; j < 64; ++j)
            points.push_back({0.01f + i * 0.0125f, 0.01f + j * 0.0125f, (i * 64 + j) % 255 + 1});
    return points;
}

void BM_RgbToXY(benchmark::State& state)
{
    const GamutCLamp lamp;
    const std::vector<uint> inputs = rgbInputs();
    std::size_t next = 0;
    for (auto _ : state) {
        float x, y;
        int bri;
        ColorConvert::convertRgbToXY(&x, &y, &bri, inputs[next], lamp.rgbToXyz, lamp.limits);
        benchmark::DoNotOptimize(x);
        benchmark::DoNotOptimize(y);
        benchmark::DoNotOptimize(bri);
        next = (next + 1) % inputs.size();
    }
    state.SetItemsProcessed(state.iterations());
}

void BM_XYToRgb(benchmark::State& state)
{
    const GamutCLamp lamp;
    const std::vector<XYInput> inputs = xyInputs();
    std::size_t next = 0;
    for (auto _ : state) {
        const XYInput& in = inputs[next];
        benchmark::DoNotOptimize(
            ColorConvert::convertXYToRGB(in.x, in.y, in.bri, lamp.xyzToRgb, lamp.limits));
        next = (next + 1) % inputs.size();
    }
    state.SetItemsProcessed(state.iterations());
}

} // namespace

BENCHMARK(BM_RgbToXY)->Repetitions(5)->ReportAggregatesOnly(true);
BENCHMARK(BM_XYToRgb)->Repetitions(5)->ReportAggregatesOnly(true);

BENCHMARK_MAIN();
