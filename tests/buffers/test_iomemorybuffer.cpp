#include "buffers/IOMemoryBuffer.h"
#include "buffers/MemoryBuffer.h"

#include "fixtures/fixtures.h"
#include "qtprinters.h"

#include <QTextStream>
#include <gtest/gtest.h>

#include <functional>

namespace {

// Reaches the device's own read and write, below QIODevice's own checks.
class Device : public IOMemoryBuffer
{
public:
    using IOMemoryBuffer::IOMemoryBuffer;
    using IOMemoryBuffer::readData;
    using IOMemoryBuffer::writeData;
};

} // namespace

TEST(IOMemoryBuffer, RefusalsGiveMinusOneOrFalseAndSayWhy)
{
    char data[4] = {};
    const QIODevice::OpenModeFlag closed = QIODevice::NotOpen, ro = QIODevice::ReadOnly, rw = QIODevice::ReadWrite;
    const struct { const char *label; QIODevice::OpenModeFlag mode; std::function<qint64(Device &, MemoryBuffer &)> op;
                   qint64 result; QString error; } cases[] = {
        {"seek, closed", closed, [](auto &d, auto &) { return d.seek(1); }, 0, "Device is not open"},
        {"reset, closed", closed, [](auto &d, auto &) { return d.reset(); }, 0, "Device is not open"},
        {"read, closed", closed, [&](auto &d, auto &) { return d.readData(data, 1); }, -1, "Device is not open"},
        {"write, closed", closed, [&](auto &d, auto &) { return d.writeData(data, 1); }, -1,
         "MemoryBuffer: Device is not open"},
        {"write, read-only", ro, [&](auto &d, auto &) { return d.writeData(data, 1); }, -1,
         "MemoryBuffer: Device does not have Write permissions"},
        {"read into null", rw, [](auto &d, auto &) { return d.readData(nullptr, 1); }, -1, "Data pointer is null"},
        {"read, negative", rw, [&](auto &d, auto &) { return d.readData(data, -1); }, -1, "Negative length specified"},
        {"write, negative", rw, [&](auto &d, auto &) { return d.writeData(data, -1); }, -1, "Negative length specified"},
        {"seek, negative", rw, [](auto &d, auto &) { return d.seek(-1); }, 0, "Unable to convert from qint64 to size_t"},
        {"read at the end", ro, [&](auto &d, auto &) { return d.seek(4) ? d.read(data, 1) : 9; }, -1,
         "No more data available"},
        {"write, fixed size", rw,
         [](auto &d, auto &b) { b.allowBufferExpansion(false); return d.seek(4) ? d.write("x", 1) : 9; }, -1,
         "Write beyond end of buffer occurred: Size of buffer (4), Offset (4), Size requested (1)"},
        {"read, cursor beyond the end", ro,
         [&](auto &d, auto &b) { b.restoreBufferState({9, true, MBNativeOrder});
                                 return d.atEnd() && d.bytesAvailable() == 0 ? d.readData(data, 1) : 9; },
         -1, "Arithmetic overflow"},
    };
    for (const auto &c : cases) {
        MemoryBuffer buffer = bufferOf("abcd");
        Device device(&buffer);
        ASSERT_TRUE(c.mode == closed || device.open(c.mode)) << c.label;
        EXPECT_EQ(c.op(device, buffer), c.result) << c.label;
        EXPECT_EQ(device.errorString(), c.error) << c.label;
    }
}

TEST(IOMemoryBuffer, OpenModesSeekAndReadFollowTheBuffer)
{
    MemoryBuffer buffer = bufferOf("0123456789");
    const auto contents = [&] { return bytesOf(buffer).toStdString(); };
    IOMemoryBuffer truncating(&buffer), appending(&buffer), device(&buffer);
    ASSERT_TRUE(truncating.open(QIODevice::ReadWrite | QIODevice::Truncate));
    EXPECT_EQ(truncating.write("abc", 3), 3);
    EXPECT_EQ(contents(), "abc");
    buffer.seek(0);
    ASSERT_TRUE(appending.open(QIODevice::WriteOnly | QIODevice::Append));
    EXPECT_EQ(appending.write("z", 1), 1);
    EXPECT_EQ(contents(), "abcz");

    buffer.allowBufferExpansion(false);
    ASSERT_TRUE(device.open(QIODevice::ReadOnly));
    ASSERT_TRUE(device.seek(10));
    EXPECT_EQ(buffer.tell(), 10u);
    EXPECT_EQ(contents(), std::string("abcz\0\0\0\0\0\0", 10)) << "seeking past the end grows with zeros, even so";
    ASSERT_TRUE(device.seek(2));
    char data[100];
    EXPECT_EQ(device.read(data, 100), 8) << "reads stop at the end";
    EXPECT_EQ(data[0], 'c');
    EXPECT_TRUE(device.atEnd());
}

TEST(IOMemoryBuffer, QtStreamsWorkOverTheBuffer)
{
    MemoryBuffer buffer;
    IOMemoryBuffer writer(&buffer), reader(&buffer);
    ASSERT_TRUE(writer.open(QIODevice::WriteOnly));
    QTextStream(&writer) << "line one\nline two\n"; // flushed when the stream goes
    ASSERT_TRUE(reader.open(QIODevice::ReadOnly) && reader.reset());
    QTextStream in(&reader);
    EXPECT_EQ(in.readLine(), QStringLiteral("line one"));
    EXPECT_EQ(in.readLine(), QStringLiteral("line two"));
}
