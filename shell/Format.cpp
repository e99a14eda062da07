#include "shell/Format.hpp"

#include <cmath>

#include <QDateTime>
#include <QLocale>

namespace vorlen::shell::format {

QString clock(double seconds) {
    auto total = static_cast<long long>(std::ceil(std::max(0.0, seconds)));
    if (total >= 3600)
        return QString("%1:%2:%3").arg(total / 3600).arg(total / 60 % 60, 2, 10, QChar('0')).arg(total % 60, 2, 10, QChar('0'));
    return QString("%1:%2").arg(total / 60).arg(total % 60, 2, 10, QChar('0'));
}

QString videoTime(double seconds) {
    auto tenths = static_cast<long long>(std::llround(std::max(0.0, seconds) * 10));
    return QString("%1:%2.%3").arg(tenths / 600).arg(tenths / 10 % 60, 2, 10, QChar('0')).arg(tenths % 10);
}

QString bytes(std::uint64_t count) {
    if (count < 1000) return QString("%1 bytes").arg(count);
    double value = double(count);
    const char* units[] = {"kB", "MB", "GB", "TB"};
    int unit = -1;
    while (value >= 1000 && unit < 3) {
        value /= 1000;
        ++unit;
    }
    return QString("%1 %2").arg(value, 0, 'f', value < 10 ? 2 : 1).arg(units[unit]);
}

QString rate(double bytesPerSecond) {
    double megabits = bytesPerSecond * 8 / 1e6;
    return QString("%1 Mbit/s").arg(megabits, 0, 'f', megabits < 10 ? 2 : 1);
}

QString stage(app::JobStage stage) {
    switch (stage) {
        case app::JobStage::encoding: return "Encoding";
        case app::JobStage::packaging: return "Packaging";
        case app::JobStage::reviewingPoster: return "Reviewing the poster";
        case app::JobStage::uploading: return "Uploading";
    }
    return {};
}

QString change(app::LibraryModel::Change change) {
    switch (change) {
        case app::LibraryModel::Change::waiting: return "Waiting\u2026";
        case app::LibraryModel::Change::saving: return "Saving\u2026";
        case app::LibraryModel::Change::movingToNewLink: return "Moving to a new link\u2026";
        case app::LibraryModel::Change::changingPoster: return "Changing the poster\u2026";
        case app::LibraryModel::Change::deleting: return "Deleting\u2026";
        case app::LibraryModel::Change::replacingVideo: return "Replacing the video\u2026";
        case app::LibraryModel::Change::reimportingAudio: return "Re-importing the audio\u2026";
        case app::LibraryModel::Change::changingSubtitles: return "Changing the subtitles\u2026";
    }
    return {};
}

QString channels(std::optional<std::int64_t> count) {
    if (!count || *count == 0) return "No audio";
    if (*count == 1) return "Mono";
    if (*count == 2) return "Stereo";
    return QString("%1 channels").arg(*count);
}

QString language(const std::string& tag) {
    QLocale locale(QString::fromStdString(tag));
    if (locale.language() == QLocale::C) return QString::fromStdString(tag);
    return QLocale::languageToString(locale.language());
}

QString date(SystemTime time) {
    // The format's month names are English whatever the system's language, as all the window's words are.
    return QDateTime::fromSecsSinceEpoch(time.time_since_epoch().count()).toLocalTime().toString("d MMM yyyy");
}

QString counted(std::int64_t count, const QString& noun) { return QString("%1 %2%3").arg(count).arg(noun, count == 1 ? "" : "s"); }

QString quoted(const QString& text) { return QString::fromUtf8("\u201c") + text + QString::fromUtf8("\u201d"); }

QString loudness(AudioLoudness loudness) {
    switch (loudness) {
        case AudioLoudness::original: return "Original: as recorded, peaks kept below \u22122 dB";
        case AudioLoudness::web: return "Web: \u221214 LUFS, as loud as most online video";
        case AudioLoudness::broadcast: return "Broadcast: \u221224 LUFS, with room for dynamics";
    }
    return {};
}

}  // namespace vorlen::shell::format
