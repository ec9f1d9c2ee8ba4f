// Shows everything that a failure tells, and what FFmpeg said meanwhile: failures FILE
#include "OpenFile.h"

#include <glog/logging.h>
#include <boost/exception/get_error_info.hpp>
#include <boost/exception/info.hpp>

#include <cstdio>
#include <mutex>
#include <vector>

using namespace Quorva;

/// Keeps what FFmpeg complains of. FFmpeg logs on threads of its own too.
class Complaints final : public google::LogSink {
public:
    Complaints() { google::AddLogSink(this); }
    ~Complaints() override { google::RemoveLogSink(this); }
    void send(google::LogSeverity severity, const char*, const char*, int, const tm*, const char* message,
              size_t size) override
    {
        const std::lock_guard lock(mutex);
        if (severity >= google::GLOG_WARNING)
            lines.emplace_back(message, size);
    }
    std::vector<std::string> Take()
    {
        const std::lock_guard lock(mutex);
        return std::exchange(lines, {});
    }

private:
    std::mutex mutex;
    std::vector<std::string> lines;
};

void Report(const Exception& e)
{
    std::printf("what:  %s\n", e.what());
    if (const std::string* codec = boost::get_error_info<Proc::TagCodecID>(e))
        std::printf("codec: %s\n", codec->c_str());
    const char* const* file = boost::get_error_info<boost::throw_file>(e);
    if (const int* line = boost::get_error_info<boost::throw_line>(e); file && line)
        std::printf("where: %s:%d\n", *file, *line);
    if (const std::string* calls = boost::get_error_info<TagCallStack>(e))
        std::printf("calls:\n%s", calls->c_str());
}

int main(int argc, char** argv)
{
    FLAGS_stderrthreshold = google::GLOG_FATAL;  // the records go to the sink alone
    for (const auto severity : {google::GLOG_INFO, google::GLOG_WARNING, google::GLOG_ERROR})
        google::SetLogDestination(severity, "");  // and into no files
    google::InitGoogleLogging(argv[0]);
    Complaints complaints;
    try {
        OpenFile file(argc > 1 ? argv[1] : "");
        std::printf("%u streams\n", file->nb_streams);
        return 0;
    } catch (const Core::MemoryException& e) {  // the particular ones first
        std::printf("%llu bytes could not be had\n", static_cast<unsigned long long>(e.GetSize()));
    } catch (const Core::IOException& e) {
        std::puts("reading or writing failed");
        Report(e);
    } catch (const Exception& e) {
        Report(e);
    }
    for (const std::string& line : complaints.Take())
        std::printf("log:   %s\n", line.c_str());
    return 1;
}
