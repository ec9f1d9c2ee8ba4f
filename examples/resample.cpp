// Brings a second of sound from 48 kHz stereo to 44.1 kHz mono: resample
#include "Proc/Wrappers/Tessadrin/Tessadrin.h"
#include "host/Media.h"

#include <cmath>
#include <cstdio>
#include <numbers>

using namespace Quorva;

int main()
try {
    const Conf::SampleInfo from(48000, Conf::SampleFormats::FLTP, Conf::ChannelLayout::Stereo);
    const Conf::SampleInfo to(44100, Conf::SampleFormats::S16, Conf::ChannelLayout::Mono);
    Proc::SafeSwrContext resampler(from, to);

    constexpr int piece = 1024;
    const auto input = MakeRefCounted<Proc::AudioData>(from, piece);
    const auto output = MakeRefCounted<Proc::AudioData>(to, 2 * piece);
    int64_t written = 0;
    double energy = 0;
    const auto take = [&](int samples) {  // 440 Hz come out as they went in, only fewer samples of them
        const auto* values = reinterpret_cast<const int16_t*>(output->GetFrame()->data[0]);
        for (int i = 0; i < samples; ++i)
            energy += std::pow(values[i] / 32768.0, 2);
        written += samples;
    };
    for (int64_t begin = 0; begin < from.sampleRate; begin += piece) {
        const int count = static_cast<int>(std::min<int64_t>(piece, from.sampleRate - begin));
        input->SetSampleCount(count);
        for (int channel = 0; channel < 2; ++channel) {
            auto* values = reinterpret_cast<float*>(input->GetFrame()->extended_data[channel]);
            for (int i = 0; i < count; ++i)
                values[i] =
                    static_cast<float>(0.5 * std::sin(2 * std::numbers::pi * 440 *
                                                      static_cast<double>(begin + i) / from.sampleRate));
        }
        take(resampler.Convert(input, output, 0));
    }
    std::printf("%d samples are still in the resampler\n", resampler.GetDelay(to.sampleRate));
    take(resampler.Convert(nullptr, output, 0));  // null drains it
    std::printf("%lld samples, %.1f dB\n", static_cast<long long>(written),
                10 * std::log10(energy / static_cast<double>(written)));
} catch (const std::exception& e) {
    std::fprintf(stderr, "%s\n", e.what());
    return 1;
}
