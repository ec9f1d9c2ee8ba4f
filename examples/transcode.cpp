// Makes a WAV file of a film's sound: transcode FILE OUT.wav
#include "OpenFile.h"
#include "host/Media.h"

#include <cstdio>

using namespace Quorva;

int main(int argc, char** argv)
try {
    if (argc != 3)
        return std::fputs("usage: transcode FILE OUT.wav\n", stderr), 2;
    OpenFile file(argv[1]);
    const int index = file.Best(AVMEDIA_TYPE_AUDIO);
    if (index < 0)
        return std::puts("no sound"), 1;
    const Proc::SafeCodecContext decoder = file.OpenDecoder(index);
    const Conf::SampleInfo from(decoder->sample_rate, Proc::SampleFormatQuorvaFromFFMPEG(decoder->sample_fmt),
                                Conf::LayoutRecord::Find(decoder->ch_layout.nb_channels)->layout);
    const Conf::SampleInfo to(from.sampleRate, Conf::SampleFormats::S16, from.layout->layout);

    const Proc::SafeEncoderCodec codec(AV_CODEC_ID_PCM_S16LE, Proc::ImplNames::FFMPEG);
    const Proc::SafeCodecContext encoder(codec.Get());
    encoder->sample_rate = to.sampleRate;
    encoder->sample_fmt = Proc::SampleFormatFFMPEGFromQuorva(to.format->format);
    encoder->ch_layout = Proc::AVChannelLayoutFromQuorva(to.layout->layout);
    encoder->time_base = {1, to.sampleRate};
    const auto check = [](int result) {
        if (result < 0)
            Fail(Proc::GetErrorDescriptionFFMPEG(result));
    };
    check(avcodec_open2(encoder.get(), codec.Get(), nullptr));

    Proc::StreamFailure failure;
    const Proc::GuardedIO io(Core::DataOutputFile::Create(argv[2]), true, Proc::GuardedIO::SIZE, failure);
    const std::unique_ptr<AVFormatContext, decltype(&avformat_free_context)> output(avformat_alloc_context(),
                                                                                    avformat_free_context);
    output->oformat = Proc::GetOutputFormat(Conf::IFormatFile::FORMAT_WAV);
    output->pb = io.Get();
    AVStream* const stream = Proc::CreateStream(output.get(), codec.Get());
    check(avcodec_parameters_from_context(stream->codecpar, encoder.get()));
    check(avformat_write_header(output.get(), nullptr));

    Proc::SafeSwrContext resampler(from, to);
    const std::unique_ptr<AVPacket, Close> packet(av_packet_alloc());
    const Proc::SafeFrame frame;
    int64_t samples = 0;
    for (bool more = true; more;) {
        more = file.Read(packet.get());
        if (more && packet->stream_index != index)
            continue;
        avcodec_send_packet(decoder.get(), more ? packet.get() : nullptr);  // damaged ones are left out
        while (avcodec_receive_frame(decoder.get(), frame.get()) >= 0) {
            const auto room = MakeRefCounted<Proc::AudioData>(to, frame->nb_samples + 64);
            room->SetSampleCount(
                resampler.Convert(MakeRefCounted<Proc::AudioData>(*frame.get(), from), room, 0));
            room->GetFrame()->pts = samples;
            samples += room->GetSampleCount();
            check(avcodec_send_frame(encoder.get(), room->GetFrame()));
            const std::unique_ptr<AVPacket, Close> encoded(av_packet_alloc());
            while (avcodec_receive_packet(encoder.get(), encoded.get()) >= 0)
                check(av_interleaved_write_frame(output.get(), encoded.get()));
        }
    }
    check(av_write_trailer(output.get()));
    avio_flush(io.Get());
    failure.Check();
    std::printf("%lld samples at %d Hz\n", static_cast<long long>(samples), to.sampleRate);
} catch (const std::exception& e) {
    std::fprintf(stderr, "%s\n", e.what());
    return 1;
}
