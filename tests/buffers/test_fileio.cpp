#include "buffers/FileIO.h"
#include "buffers/MemoryBuffer.h"

#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <functional>

TEST(FileIO, FailuresCloseTheFileAndSayWhy)
{
    QTemporaryDir dir;
    const std::string cannotOpen = "Could not open file for the following reason: ";
    QFile empty(dir.filePath(QStringLiteral("empty")));
    FileIO::writeToFile(empty, {}); // writing nothing makes an empty file
    // The expected message is the whole message, or its start when it ends in ": ".
    const struct { const char *label; QString path; std::function<void(QFile &)> op; std::string message; } cases[] = {
        {"missing", dir.filePath(QStringLiteral("absent")), [](QFile &f) { FileIO::readFile(f); },
         cannotOpen + "No such file or directory."},
        {"empty", dir.filePath(QStringLiteral("empty")), [](QFile &f) { FileIO::readFile(f); }, "File size is 0"},
        {"directory", dir.path(), [](QFile &f) { FileIO::readFile(f); }, cannotOpen},
        {"buffer from a missing file", dir.filePath(QStringLiteral("absent")), [](QFile &f) { MemoryBuffer{f}; },
         cannotOpen + "No such file or directory."},
        {"unwritable path", dir.filePath(QStringLiteral("no/such/dir/file")),
         [](QFile &f) { FileIO::writeToFile(f, {1}); }, cannotOpen},
    };
    for (const auto &c : cases) {
        QFile file(c.path);
        std::string message = "<no exception>";
        try { c.op(file); } catch (const IOException &e) { message = e.what(); }
        if (c.message.back() == ' ')
            message.resize(std::min(message.size(), c.message.size()));
        EXPECT_EQ(message, c.message) << c.label;
        EXPECT_FALSE(file.isOpen()) << c.label;
    }
}
