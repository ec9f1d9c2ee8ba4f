// Keeps the records that are written while it lives, and keeps them off the terminal and the disk.
#pragma once

#include <glog/logging.h>

#include <mutex>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

struct LogRecord {
    google::LogSeverity severity;
    std::string text;  ///< without the line feed that ends it
    bool operator==(const LogRecord&) const = default;
    friend std::ostream& operator<<(std::ostream& stream, const LogRecord& record)
    {
        return stream << google::GetLogSeverityName(record.severity) << " \"" << record.text << '"';
    }
};

class LogCapture : google::LogSink {
public:
    LogCapture()
    {
        [[maybe_unused]] static const bool quiet = [] {
            google::InitGoogleLogging("test");
            FLAGS_stderrthreshold = google::NUM_SEVERITIES;
            for (int severity = 0; severity < google::NUM_SEVERITIES; ++severity)
                google::SetLogDestination(severity, "");
            return true;
        }();
        google::AddLogSink(this);
    }
    ~LogCapture() override { google::RemoveLogSink(this); }

    /// What was written since the last call; the capture is empty afterwards.
    std::vector<LogRecord> Take()
    {
        const std::lock_guard guard(mutex);
        return std::exchange(records, {});
    }

    /// The unit that the records came from: the file's name up to its first dot; "several" for more than one.
    std::string GetUnit()
    {
        const std::lock_guard guard(mutex);
        return unit;
    }

private:
    void send(google::LogSeverity severity, const char*, const char* file, int, const google::LogMessageTime&,
              const char* message, size_t length) override
    {
        const std::lock_guard guard(mutex);
        const std::string name(file);
        const std::string from = name.substr(0, name.find('.'));
        unit = unit.empty() || unit == from ? from : "several";
        records.push_back({severity, std::string(message, length)});
    }

    std::mutex mutex;
    std::vector<LogRecord> records;
    std::string unit;
};
