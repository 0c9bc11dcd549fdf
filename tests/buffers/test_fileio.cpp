#include "buffers/FileIO.h"
#include "buffers/MemoryBuffer.h"

#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace {

std::string ioMessage(QFile &file)
{
    try {
        FileIO::readFile(file);
    } catch (const IOException &e) {
        EXPECT_FALSE(file.isOpen()) << "FileIO must close the file before throwing";
        return e.what();
    }
    return "<no exception>";
}

} // namespace

TEST(FileIORead, MissingFileNamesQtsReasonAndEndsWithAFullStop)
{
    QTemporaryDir dir;
    QFile file(dir.filePath(QStringLiteral("absent")));
    const std::string message = ioMessage(file);
    EXPECT_EQ(message, "Could not open file for the following reason: " +
                           file.errorString().toStdString() + ".");
    EXPECT_NE(message.find("No such file"), std::string::npos) << message;
}

TEST(FileIORead, EmptyFileIsRefused)
{
    QTemporaryDir dir;
    QFile file(dir.filePath(QStringLiteral("empty")));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.close();
    EXPECT_EQ(ioMessage(file), "File size is 0");
}

TEST(FileIORead, DirectoryIsRefusedAtOpen)
{
    QTemporaryDir dir;
    QFile file(dir.path());
    EXPECT_EQ(ioMessage(file).rfind("Could not open file for the following reason: ", 0), 0u);
}

TEST(FileIORead, BufferConstructorPropagatesTheFailure)
{
    QTemporaryDir dir;
    QFile file(dir.filePath(QStringLiteral("absent")));
    EXPECT_THROW(MemoryBuffer{file}, IOException);
}

TEST(FileIOWrite, RoundTripAndEmptyData)
{
    QTemporaryDir dir;
    QFile file(dir.filePath(QStringLiteral("data")));
    const std::vector<unsigned char> data = {0, 1, 2, 255, 0};
    FileIO::writeToFile(file, data);
    EXPECT_FALSE(file.isOpen());
    EXPECT_EQ(FileIO::readFile(file), data);

    FileIO::writeToFile(file, {});
    EXPECT_EQ(QFileInfo(file).size(), 0);
}

TEST(FileIOWrite, UnwritablePathIsRefused)
{
    QTemporaryDir dir;
    QFile file(dir.filePath(QStringLiteral("no/such/dir/file")));
    try {
        FileIO::writeToFile(file, {1});
        FAIL() << "expected IOException";
    } catch (const IOException &e) {
        EXPECT_EQ(std::string(e.what()).rfind("Could not open file for the following reason: ", 0), 0u);
        EXPECT_FALSE(file.isOpen());
    }
}
