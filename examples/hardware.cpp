// Sends a picture through the memory of a device and looks whether it comes back: hardware [TYPE]
#include "Fail.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.h"

#include <cstdio>
#include <cstring>

using namespace Quorva;

int main(int argc, char** argv)
try {
    const char* const type = argc > 1 ? argv[1] : "opencl";
    Proc::SafeBuffer device(av_hwdevice_find_type_by_name(type), nullptr, nullptr, 0);
    if (const auto constraints = device.GetFramesConstraints(nullptr))
        std::printf("%s takes %zu formats\n", type, constraints->validSwFormats.size());

    constexpr int width = 640, height = 360;
    Proc::SafeBuffer pool = device.AllocFramesContextBuffer(
        {width, height}, Proc::PixelFormatQuorvaFromFFMPEGSafe(AV_PIX_FMT_NV12), 0);
    pool.InitFramesContext();

    Proc::SafeFrame picture({}, AV_PIX_FMT_NV12, width, height, 1, 1);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            picture->data[0][y * picture->linesize[0] + x] = static_cast<uint8_t>(x + y);
    for (int y = 0; y < height / 2; ++y)
        std::memset(picture->data[1] + y * picture->linesize[1], 128, width);

    const Proc::SafeFrame onDevice = pool.AllocFrame(Conf::ColorSpace());
    const Proc::SafeFrame back;
    for (const int result : {av_hwframe_transfer_data(onDevice.get(), picture.get(), 0),
                             av_hwframe_transfer_data(back.get(), onDevice.get(), 0)})
        if (result < 0)
            Fail(Proc::GetErrorDescriptionFFMPEG(result));
    int different = 0;
    for (int y = 0; y < height; ++y)
        different += std::memcmp(picture->data[0] + y * picture->linesize[0],
                                 back->data[0] + y * back->linesize[0], width) != 0;
    std::printf("%d of %d rows came back different\n", different, height);
    return different ? 1 : 0;
} catch (const std::exception& e) {
    std::fprintf(stderr, "%s\n", e.what());
    return 77;  // there is no such device
}
