// What sandboxed processes can't do, and what they still can.
#include "Proc/Wrappers/Tessadrin/FFmpeg.h"
#include "tests/support/Isolated.h"
#include "tests/support/TemporaryFolder.h"
#include "tools/isolation/Sandbox.h"

#include <gmock/gmock.h>

#include <arpa/inet.h>
#include <dirent.h>
#include <fcntl.h>
#include <iconv.h>
#include <linux/io_uring.h>
#include <netinet/in.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/random.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>
#include <string>
#include <thread>

/// What fontconfig keeps for the process's life.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions()
{
    return "leak:libfontconfig";
}

namespace Quorva::Tool {
namespace {

struct Attempt {
    const char* name;
    long (*call)(const char* path);  ///< of a file that exists; negative or -1: it failed
};

/// Raw, so that nothing of the C library stands between.
template <class... Args>
long Call(long number, Args... args)
{
    return syscall(number, args...);
}

long OpenFor(const char* path, int flags) { return open(path, flags, 0600); }

const Attempt FORBIDDEN[] = {
    {"read a file",            [](const char* path) { return OpenFor(path, O_RDONLY); }                                   },
    {"read passwords",         [](const char*) { return OpenFor("/etc/passwd", O_RDONLY); }                               },
    {"read another process",
     [](const char*) {
         return OpenFor(("/proc/" + std::to_string(getppid()) + "/environ").c_str(), O_RDONLY);
     }                                                                                                                    },
    {"list the root",          [](const char*) -> long { return opendir("/") ? 0 : -1; }                                  },
    {"list /tmp",              [](const char*) -> long { return opendir("/tmp") ? 0 : -1; }                               },
    {"write a file",           [](const char* path) { return OpenFor(path, O_WRONLY); }                                   },
    {"create a file",
     [](const char* path) { return OpenFor((std::string(path) + "2").c_str(), O_WRONLY | O_CREAT); }                      },
    {"create a nameless file", [](const char*) { return OpenFor("/tmp", O_RDWR | O_TMPFILE); }                            },
    {"truncate",               [](const char* path) { return long{truncate(path, 0)}; }                                   },
    {"unlink",                 [](const char* path) { return long{unlink(path)}; }                                        },
    {"rename",                 [](const char* path) { return long{rename(path, (std::string(path) + "2").c_str())}; }     },
    {"link",                   [](const char* path) { return long{link(path, (std::string(path) + "2").c_str())}; }       },
    {"symlink",                [](const char* path) { return long{symlink("/", (std::string(path) + "2").c_str())}; }     },
    {"mkdir",                  [](const char* path) { return long{mkdir((std::string(path) + "2").c_str(), 0700)}; }      },
    {"chmod",                  [](const char* path) { return long{chmod(path, 0777)}; }                                   },
    {"TCP socket",             [](const char*) { return long{socket(AF_INET, SOCK_STREAM, 0)}; }                          },
    {"UDP socket",             [](const char*) { return long{socket(AF_INET6, SOCK_DGRAM, 0)}; }                          },
    {"local socket",           [](const char*) { return long{socket(AF_UNIX, SOCK_STREAM, 0)}; }                          },
    {"socket pair",
     [](const char*) {
         int pair[2];
         return long{socketpair(AF_UNIX, SOCK_STREAM, 0, pair)};
     }                                                                                                                    },
    {"connect",
     [](const char*) {
         sockaddr_in to{};
         to.sin_family = AF_INET;
         return long{connect(3, reinterpret_cast<sockaddr*>(&to), sizeof to)};
     }                                                                                                                    },
    {"exec",                   [](const char*) { return long{execl("/bin/true", "true", nullptr)}; }                      },
    {"fork",
     [](const char*) {
         const pid_t child = fork();
         if (child == 0)
             _exit(0);
         return long{child};
     }                                                                                                                    },
    {"vfork",                  [](const char*) { return Call(SYS_clone, CLONE_VM | CLONE_VFORK, 0, 0, 0, 0); }            },
    {"clone3",                 [](const char*) { return Call(SYS_clone3, nullptr, 0) == 0 || errno == EINVAL ? 0L : -1L; }},
    {"trace",                  [](const char*) { return long{ptrace(PTRACE_ATTACH, getppid(), nullptr, nullptr)}; }       },
    {"read memory",
     [](const char*) {
         char byte;
         const iovec here{&byte, 1}, there{const_cast<char*>("x"), 1};
         return long{process_vm_readv(getppid(), &here, 1, &there, 1, 0)};
     }                                                                                                                    },
    {"signal the parent",      [](const char*) { return long{kill(getppid(), 0)}; }                                       },
    {"signal all",             [](const char*) { return long{kill(-1, 0)}; }                                              },
    {"signal the group",       [](const char*) { return long{kill(0, 0)}; }                                               },
    {"pidfd",                  [](const char*) { return Call(SYS_pidfd_open, getppid(), 0); }                             },
    {"mount",                  [](const char*) { return long{mount("none", "/tmp", "tmpfs", 0, nullptr)}; }               },
    {"unshare",                [](const char*) { return long{unshare(CLONE_NEWUSER)}; }                                   },
    {"chroot",                 [](const char*) { return long{chroot("/")}; }                                              },
    {"setuid",                 [](const char*) { return long{setuid(1)}; }                                                },
    {"raise a limit",
     [](const char*) {
         const rlimit limit{512, 512};
         return long{setrlimit(RLIMIT_NOFILE, &limit)};
     }                                                                                                                    },
    {"dumps",                  [](const char*) { return long{prctl(PR_SET_DUMPABLE, 1)}; }                                },
    {"io_uring",
     [](const char*) {
         io_uring_params parameters{};
         return Call(SYS_io_uring_setup, 8, &parameters);
     }                                                                                                                    },
    {"bpf",
     [](const char*) {
         return Call(SYS_bpf, 0, nullptr, 0) == -1 && errno != EINVAL && errno != EFAULT ? -1L : 0L;
     }                                                                                                                    },
    {"perf",
     [](const char*) {
         return Call(SYS_perf_event_open, nullptr, 0, -1, -1, 0) == -1 && errno != EFAULT ? -1L : 0L;
     }                                                                                                                    },
    {"keys",                   [](const char*) { return Call(SYS_keyctl, 0, -3, 0); }                                     },
    {"handles",
     [](const char*) {
         return Call(SYS_open_by_handle_at, AT_FDCWD, nullptr, 0) == -1 && errno != EFAULT ? -1L : 0L;
     }                                                                                                                    },
    {"userfaultfd",            [](const char*) { return Call(SYS_userfaultfd, 1); }                                       },
    {"type into the terminal",
     [](const char*) {
         char key = 'x';
         return Call(SYS_ioctl, 0, 0x5412, &key) == -1 && errno != ENOTTY && errno != EIO ? -1L : 0L;
     }                                                                                                                    },
};

long ReadSome(const char* path)
{
    char bytes[64];
    const int descriptor = open(path, O_RDONLY);
    const long size = descriptor < 0 ? -1 : read(descriptor, bytes, sizeof bytes);
    close(descriptor);
    return size;
}

const Attempt POSSIBLE[] = {
    {"a thread",
     [](const char*) {
         long result = -1;
         std::thread([&] { result = 0; }).join();
         return result;
     }                                                                                         },
    {"memory",
     [](const char*) {
         void* const page =
             mmap(nullptr, 1 << 20, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
         return page == MAP_FAILED ? -1L : long{munmap(page, 1 << 20)};
     }                                                                                         },
    {"the file itself",
     [](const char* path) {
         uint8_t byte;
         return Core::DataInputFile::Create(RequestInput(path).Release(), path)->Read(&byte, 1) == 1 &&
                        byte == 'c'
                    ? 0L
                    : -1L;
     }                                                                                         },
    {"a character set",
     [](const char*) {
         const iconv_t set = iconv_open("UTF-8", "SHIFT_JISX0213");
         return set == iconv_t(-1) ? -1L : long{iconv_close(set)};
     }                                                                                         },
    {"fonts",
     [](const char*) -> long {
         return access("/usr/share/fonts", F_OK) != 0 || opendir("/usr/share/fonts") ? 0 : -1;
     }                                                                                         },
    {"font configuration",
     [](const char*) -> long {
         return access("/etc/fonts/fonts.conf", F_OK) != 0 ? 0 : ReadSome("/etc/fonts/fonts.conf");
     }                                                                                         },
    {"time",
     [](const char*) {
         timespec now;
         return long{clock_gettime(CLOCK_REALTIME, &now)};
     }                                                                                         },
    {"sleep",
     [](const char*) {
         const timespec some{0, 1000};
         return long{nanosleep(&some, nullptr)};
     }                                                                                         },
    {"chance",
     [](const char*) {
         char byte;
         return static_cast<long>(getrandom(&byte, 1, 0));
     }                                                                                         },
    {"/dev/urandom",       [](const char*) { return ReadSome("/dev/urandom"); }                },
    {"/dev/null",          [](const char*) { return OpenFor("/dev/null", O_RDONLY); }          },
    {"processors",         [](const char*) { return ReadSome("/proc/cpuinfo"); }               },
    {"itself",             [](const char*) { return ReadSome("/proc/self/maps"); }             },
    {"signal itself",      [](const char*) { return long{kill(getpid(), 0)} + raise(SIGCHLD); }},
    {"limits",
     [](const char*) {
         rlimit limit;
         return getrlimit(RLIMIT_CORE, &limit) == 0 && limit.rlim_max == 0 ? 0L : -1L;
     }                                                                                         },
};

void ReportAttempts(std::span<const Attempt> attempts, const char* path)
{
    for (const Attempt& attempt : attempts)
        std::printf("%s %s\n", attempt.call(path) < 0 ? "-" : "+", attempt.name);
}

std::string Expected(std::span<const Attempt> attempts, const char* sign)
{
    std::string text;
    for (const Attempt& attempt : attempts)
        text += std::string(sign) + " " + attempt.name + "\n";
    return text;
}

class SandboxTest : public testing::Test {
protected:
    void SetUp() override
    {
#ifdef __SANITIZE_THREAD__
        GTEST_SKIP()
            << "ThreadSanitizer doesn't see the codecs' own locks, and its run-time aborts in a sandbox "
               "that refuses what is tried here";
#endif
    }
};

TEST_F(SandboxTest, WhatIsForbiddenFailsAndTheRestWorks)
{
    const SandboxAbilities abilities = GetSandboxAbilities();
    if (!abilities.missing.empty())
        GTEST_SKIP() << "not in this kernel: " << testing::PrintToString(abilities.missing);
    const TemporaryFolder folder;
    const std::string path = folder.Put("file", "content");
    IsolatedRun run;
    run.path = [&](size_t) { return path; };
    run.process = [&](size_t) {
        ReportAttempts(FORBIDDEN, path.c_str());
        ReportAttempts(POSSIBLE, path.c_str());
        return 0;
    };
    run.Run({});
    ASSERT_FALSE(run.results[0].failure) << run.results[0].failure->message << run.output;
    EXPECT_EQ(run.output, Expected(FORBIDDEN, "-") + Expected(POSSIBLE, "+")) << run.errors;
    EXPECT_EQ(FilesIn(folder.path), std::vector<std::string>{"file"});
}

TEST_F(SandboxTest, WritableFoldersAreAllThatCanBeWritten)
{
    const TemporaryFolder folder, other;
    IsolationOptions options;
    options.sandbox.writableFolders = {folder.path};
    const IsolatedRun run = RunOne(
        [&](size_t) {
            const std::string log = folder.At("log"), final = folder.At("final");
            const int descriptor = open(log.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600);
            return (write(descriptor, "pass", 4) == 4) + 2 * (rename(log.c_str(), final.c_str()) == 0) +
                   4 * (ReadSome(final.c_str()) == 4) + 8 * (unlink(final.c_str()) == 0) +
                   16 * (open(other.At("log").c_str(), O_RDWR | O_CREAT, 0600) < 0);
        },
        options);
    EXPECT_EQ(run.results[0].code, 31);
}

/// Sends a few frames through an encoder with threads. Returns the packets that came out, or an error.
int Encode(const char* name)
{
    const AVCodec* const codec = avcodec_find_encoder_by_name(name);
    AVCodecContext* context = avcodec_alloc_context3(codec);
    AVFrame* frame = av_frame_alloc();
    AVPacket* packet = av_packet_alloc();
    const bool video = codec->type == AVMEDIA_TYPE_VIDEO;
    context->time_base = {1, video ? 25 : 48000};
    context->thread_count = 2;
    context->width = frame->width = video ? 256 : 0;
    context->height = frame->height = video ? 144 : 0;
    context->pix_fmt = AV_PIX_FMT_YUV420P;
    context->sample_rate = frame->sample_rate = 48000;
    const void* formats = nullptr;
    if (!video && avcodec_get_supported_config(context, codec, AV_CODEC_CONFIG_SAMPLE_FORMAT, 0, &formats,
                                               nullptr) >= 0)
        context->sample_fmt = *static_cast<const AVSampleFormat*>(formats);
    av_channel_layout_default(&context->ch_layout, video ? 0 : 2);
    av_channel_layout_copy(&frame->ch_layout, &context->ch_layout);
    int packets = avcodec_open2(context, codec, nullptr);
    frame->format = video ? static_cast<int>(context->pix_fmt) : static_cast<int>(context->sample_fmt);
    frame->nb_samples = video ? 0 : context->frame_size > 0 ? context->frame_size : 960;
    for (int i = 0; packets >= 0 && i <= 12; ++i) {
        av_frame_make_writable(frame);
        if (!frame->buf[0])
            av_frame_get_buffer(frame, 0);
        frame->pts = i * (video ? 1 : frame->nb_samples);
        for (int plane = 0; plane < 3 && frame->data[plane] && frame->buf[plane]; ++plane)
            std::memset(frame->buf[plane]->data, i, frame->buf[plane]->size);
        avcodec_send_frame(context, i < 12 ? frame : nullptr);
        for (; avcodec_receive_packet(context, packet) >= 0; av_packet_unref(packet))
            ++packets;
    }
    av_packet_free(&packet);
    av_frame_free(&frame);
    avcodec_free_context(&context);
    return packets;
}

/// Draws an SVG picture with a text, which needs fonts. Returns how many pixels are not blank.
int DrawText()
{
    static constexpr char picture[] =
        "<svg xmlns='http://www.w3.org/2000/svg' width='64' height='64'>"
        "<rect width='32' height='32' fill='red'/><text x='4' y='40' font-size='30'>W</text></svg>";
    AVCodecContext* context = avcodec_alloc_context3(avcodec_find_decoder(AV_CODEC_ID_SVG));
    AVFrame* frame = av_frame_alloc();
    AVPacket* packet = av_packet_alloc();
    int pixels = av_new_packet(packet, sizeof picture - 1);
    std::memcpy(packet->data, picture, sizeof picture - 1);
    if (avcodec_open2(context, nullptr, nullptr) >= 0 && avcodec_send_packet(context, packet) >= 0 &&
        avcodec_receive_frame(context, frame) >= 0)
        for (int y = 0; y < frame->height; ++y)
            for (int x = 0; x < frame->width * 4; x += 4)
                pixels += frame->data[0][y * frame->linesize[0] + x + 3] != 0 ||
                          frame->data[0][y * frame->linesize[0] + x] != 0;
    av_packet_free(&packet);
    av_frame_free(&frame);
    avcodec_free_context(&context);
    return pixels;
}

TEST_F(SandboxTest, CodecLibrariesWorkInside)
{
    static constexpr const char* encoders[] = {"libx264",    "libx265", "libsvtav1",  "libvpx-vp9",
                                               "libaom-av1", "libopus", "libmp3lame", "libvorbis",
                                               "aac",        "mpeg4"};
    IsolationOptions options;
    options.maxMemory = uint64_t{2} << 30;
    for (const char* const name : encoders) {
        if (!avcodec_find_encoder_by_name(name))
            continue;
        const IsolatedRun run = RunOne([&](size_t) { return Encode(name); }, options);
        EXPECT_FALSE(run.results[0].failure) << name << ": " << run.results[0].failure->message;
        EXPECT_EQ(run.results[0].code, Encode(name)) << name << run.errors;
        EXPECT_GT(run.results[0].code, 0) << name;
    }
    if (avcodec_find_decoder(AV_CODEC_ID_SVG)) {
        const IsolatedRun run = RunOne([](size_t) { return DrawText(); }, options);
        EXPECT_FALSE(run.results[0].failure) << run.results[0].failure->message;
        EXPECT_EQ(run.results[0].code, DrawText()) << run.errors;
    }
}

}  // namespace
}  // namespace Quorva::Tool
