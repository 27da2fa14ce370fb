/// Where the debug log's entries go: one file a program and day.
#pragma once

#include "platform/file_io.h"

#include <chrono>
#include <mutex>
#include <spdlog/sinks/sink.h>
#include <string>
#include <string_view>
#include <sys/types.h>

namespace tq {

/// Writes each message, which is a complete entry, with one write() to the file of the message's day. The
/// first message of another day opens that day's file under the same descriptor; when it cannot be opened,
/// the entries go on into the old one, after one that says so. Nothing here throws or fails towards the
/// logger.
class LogFileSink final : public spdlog::sinks::sink {
public:
    using Time = std::chrono::system_clock::time_point;

    /// `directory` holds the files of `program`; they are made with `mode` less the process's mask.
    LogFileSink(std::string directory, std::string program, mode_t mode);

    /// Opens the file of a day. Returns its descriptor, or -1 with errno set.
    int open(Time time);

    /// Sets how many days files are kept (0 keeps all), and removes older ones if the file is the day's
    /// first.
    void keepDays(int days);

    void log(const spdlog::details::log_msg& message) override;
    void flush() override {}
    void set_pattern(const std::string& /*pattern*/) override {}
    void set_formatter(std::unique_ptr<spdlog::formatter> /*formatter*/) override {}

private:
    [[nodiscard]] std::string path(const std::string& day) const;
    void changeDay(Time time);
    void removeOldFiles(Time now) const;
    void write(std::string_view entry);

    std::string directory_;
    std::string program_;
    mode_t mode_;
    int daysKept_ = 0;
    std::mutex mutex_; ///< the master server logs from several threads
    FileDescriptor file_;
    std::string day_;         ///< yyyymmdd of the open file
    bool firstOfDay_ = false; ///< the file was empty when it was opened
    bool lineCutOff_ = false; ///< the last entry was written in part only, by this run or one before
};

} // namespace tq
