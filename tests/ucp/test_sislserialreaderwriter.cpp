// The SISL text form: the record layout as written, lexemes, and reading back,
// including text that is broken, hostile or far larger than it looks.

#include "ucp/sislserialreaderwriter.h"

#include "buffers/MemoryBuffer.h"
#include "fixtures/fixtures.h"
#include "qtprinters.h"
#include "testcamera.h"

#include <QDomDocument>
#include <QFile>

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <iostream>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

using testcamera::thrownText;

namespace {

constexpr bool kMeasured = !kSanitized;

// A DOM made of (tag, attributes, text, children) nodes, so tests can hold
// any bytes in values and any text in names.
struct Node
{
    QString tag;
    std::vector<std::pair<QString, QString>> attributes;
    QString text;
    bool hasText = false;
    std::vector<Node> children;
};

Node leaf(const QString &tag, std::vector<std::pair<QString, QString>> attributes = {})
{
    return Node{tag, std::move(attributes), QString(), false, {}};
}
Node withText(const QString &tag, const QString &text)
{
    return Node{tag, {}, text, true, {}};
}
Node parent(const QString &tag, std::vector<Node> children, std::vector<std::pair<QString, QString>> attributes = {})
{
    return Node{tag, std::move(attributes), QString(), false, std::move(children)};
}

QDomElement build(QDomDocument &doc, const Node &node)
{
    QDomElement element = doc.createElement(node.tag);
    for (const auto &[name, value] : node.attributes)
        element.setAttribute(name, value);
    if (node.hasText)
        element.appendChild(doc.createTextNode(node.text));
    for (const Node &child : node.children)
        element.appendChild(build(doc, child));
    return element;
}

QDomDocument documentOf(const Node &node)
{
    QDomDocument doc(QStringLiteral("SerialStream"));
    doc.appendChild(build(doc, node));
    return doc;
}

QByteArray sislOf(QDomDocument doc, bool pretty = false)
{
    SISLSerialReaderWriter writer;
    writer.setPrettyPrint(pretty);
    MemoryBuffer buffer;
    EXPECT_TRUE(writer.serialise(doc, &buffer));
    return bytesOf(buffer);
}

QDomDocument read(const QByteArray &text)
{
    QDomDocument doc(QStringLiteral("SerialStream"));
    MemoryBuffer buffer = bufferOf(text);
    SISLSerialReaderWriter().deserialise(doc, &buffer);
    return doc;
}

// What reading the text throws ("std: ..."), or "(nothing thrown)".
std::string readFailure(const QByteArray &text)
{
    return thrownText([&] { read(text); });
}

QByteArray record(int number, const char *tag, const QByteArray &members = QByteArray())
{
    return "__struct_" + QByteArray::number(number) + ": !" + tag + " {" + members + "}";
}
QByteArray children(const char *range)
{
    return QByteArray("__children: !__ \"") + range + "\"";
}
QByteArray text(std::initializer_list<QByteArray> records)
{
    QByteArray joined;
    for (const QByteArray &r : records)
        joined += (joined.isEmpty() ? "" : ",") + r;
    return "{" + joined + "}";
}

} // namespace

TEST(SISLSerialReaderWriter, WritesTheRecordLayoutAndReadsItBack)
{
    const QString escaped = QStringLiteral("l\nf") + QChar(1) + QStringLiteral("\"\\") + QChar(0xE9) + QStringLiteral("\t\r");
    const struct { const char *what; Node dom; bool pretty; QByteArray sisl; } cases[] = {
        {"attributes", leaf("FileStream", {{"a", "1"}, {"b", "x y"}}), false,
         R"({__struct_0: !FileStream {__meta: !__ {a: !__ "1",b: !__ "x y"}}})"},
        {"three children, numbered from the last", parent("r", {leaf("c1"), leaf("c2"), leaf("c3")}), false,
         R"({__struct_0: !r {__children: !__ "3-1"},__struct_3: !c1 {},__struct_2: !c2 {},__struct_1: !c3 {}})"},
        {"nested children and texts",
         parent("a", {parent("b", {withText("c", "1"), withText("d", "")}), withText("e", "two")}), false,
         R"({__struct_0: !a {__children: !__ "2-1"},__struct_2: !b {__children: !__ "4-3"},)"
         R"(__struct_4: !c {__data: !__ "1"},__struct_3: !d {__data: !__ ""},__struct_1: !e {__data: !__ "two"}})"},
        {"escaped bytes", leaf("v", {{"x", escaped}}), false,
         R"({__struct_0: !v {__meta: !__ {x: !__ "l\nf\x01\"\\\xE9\t\r"}}})"},
        {"names that break the rules", leaf("a b", {{"1x", ""}, {QStringLiteral("\u00e9"), "v"}}), false,
         R"({__struct_0: !__hexstr_612062 {__meta: !__ {__hexstr_3178: !__ "",__hexstr_c3a9: !__ "v"}}})"},
        {"the serialised tree's attributes first", leaf("n", {{"zz", "3"}, {"eitem", "2"}, {"name", "1"}}), false,
         R"({__struct_0: !n {__meta: !__ {name: !__ "1",eitem: !__ "2",zz: !__ "3"}}})"},
        {"pretty", parent("f", {leaf("c")}, {{"a", "1"}}), true,
         "{\n  __struct_0: !f {\n    __meta: !__ {\n      a: !__ \"1\"\n    }\n,\n    __children: !__ \"1-1\"\n  }\n"
         ",\n  __struct_1: !c {\n\n  }\n}\n"},
    };
    for (const auto &c : cases) {
        const QDomDocument dom = documentOf(c.dom);
        EXPECT_EQ(sislOf(dom, c.pretty), c.sisl) << c.what;
        // Read back and written again, it is the same text (Qt's attribute
        // order differs from one process to the next, so the DOMs are compared
        // through their text).
        EXPECT_EQ(sislOf(read(c.sisl), c.pretty), c.sisl) << c.what;
    }
    // An empty value is read back as an empty text.
    const QDomNode empty = read(R"({__struct_0: !d {__data: !__ ""}})").documentElement().firstChild();
    EXPECT_TRUE(empty.isText());
    EXPECT_EQ(empty.nodeValue(), QString());
}

TEST(SISLSerialReaderWriter, CutsTextIntoLexemes)
{
    MemoryBuffer buffer = bufferOf(R"({a: !t "v\r\t\n\"\\\x41\u0042\U00000043"})");
    QString kinds;
    QStringList texts;
    for (const SislTokenLexeme &lexeme : SISLSerialReaderWriter::tokenizeSizzle(&buffer)) {
        kinds += QString::number(lexeme.kind) + QLatin1Char(' ');
        texts << QString::fromLatin1(lexeme.getData(&buffer));
    }
    EXPECT_EQ(kinds, QStringLiteral("0 1 4 3 5 3 8 9 10 11 12 13 14 15 16 15 8 2 18 "));
    EXPECT_EQ(texts.mid(2, 3), (QStringList{"a:", " ", "!t"}));
    EXPECT_EQ(texts.at(15), QStringLiteral("\\U00000043"));
}

TEST(SISLSerialReaderWriter, BrokenTextFailsWithTheFormatsMessages)
{
    const struct { QByteArray text; const char *failure; } cases[] = {
        {"{__struct_0: !", "std: Type field is empty"},
        {" {}", "std: Invalid name field"},
        {"{a !b}", "std: Invalid name field"},
        {"{\xc3\xa9: !b}", "std: Invalid name field"},
        {R"({__struct_0: !T {__data: !__ "\xZZ"}})", "std: Invalid escape character"},
        {R"({__struct_0: !T {__data: !__ "\u12G4"}})", "std: Invalid escape character"},
        {R"({__struct_0: !T {__data: !__ "\q"}})", "std: Unknown Escape Found"},
        {"{__struct_0: !T {__data: !__ \"\x01\"}}", "std: Invalid character in value field"},
        {"{__struct_0: !T {__data: !__ \"\xe9\"}}", "std: Invalid character in value field"},
        {"{}", "std: SISL text holds no record"},
        {"{x: !T {}}", "std: Invalid name token"},
        {"{__struct_: !T {}}", "std: Invalid name token"},
        {"{__struct_0: !T {bogus: !__ \"\"}}", "std: Invalid token name"},
        {"{__struct_0: !9T {}}", "std: Invalid Name or Type field"},
        {"{__struct_0: !__hexstr_6 {}}", "std: Invalid Name or Type field"},
        {"{__struct_0: !T {__meta: !__ {-a: !__ \"1\"}}}", "std: Invalid Name or Type field"},
        {"{__struct_0: !T {__meta: !__ {a: !__ \"1\"", "std: Unable to parse Sisl file"},
        {"{__struct_0: !T {__meta: !__ {a: !__ {}}}}", "std: Unable to parse Sisl file"},
        {"{__struct_0: !T {__data: !__ \"open", "std: Unable to parse Sisl file"},
    };
    for (const auto &c : cases)
        EXPECT_EQ(readFailure(c.text), c.failure) << c.text.constData();
    // The reader searches for what it expects: separators and group closes may be missing.
    EXPECT_EQ(read("{__struct_0: !T {__data: !__ \"x\"").documentElement().text(), QStringLiteral("x"));
}

TEST(SISLSerialReaderWriter, RecordLinksMustFormOneTree)
{
    QByteArray attributes;
    for (int i = 0; i <= SISLSerialReaderWriter::kMaxAttributes; ++i)
        attributes += "a" + QByteArray::number(i) + ": !__ \"\",";
    const struct { const char *what; QByteArray text; const char *failure; } cases[] = {
        {"a number twice", text({record(0, "T", children("2-1")), record(1, "T"), record(1, "T")}),
         "std: Record number 1 occurs twice"},
        {"a number past the records", text({record(0, "T", children("1-1")), record(5, "T")}),
         "std: Record number 5 out of range"},
        {"a range past the records", text({record(0, "T", children("2-1")), record(1, "T")}),
         "std: Child range 2-1 out of bounds"},
        {"a range holding record 0", text({record(0, "T", children("1-0")), record(1, "T")}),
         "std: Child range 1-0 out of bounds"},
        {"a range written low first", text({record(0, "T", children("1-2"))}), "std: Invalid child range"},
        {"its own child", text({record(0, "T"), record(1, "T", children("1-1"))}), "std: Record 1 is its own ancestor"},
        {"a child of its descendant",
         text({record(0, "T"), record(1, "T", children("2-2")), record(2, "T", children("1-1"))}),
         "std: Record 1 is its own ancestor"},
        {"overlapping ranges",
         text({record(0, "T", children("2-1")), record(1, "T", children("2-2")), record(2, "T")}),
         "std: Child ranges 2-1 and 2-2 overlap"},
        {"a record under none", text({record(0, "T"), record(1, "T")}), "std: Record 1 hangs from no record"},
        {"a number of 20 digits", text({"__struct_18446744073709551615: !T {}"}), "std: Invalid name token"},
        {"a number near 2^63", text({"__struct_9223372036854775807: !T {}"}),
         "std: Record number 9223372036854775807 out of range"},
        {"a range near 2^64", text({record(0, "T", children("18446744073709551615-1"))}), "std: Invalid child range"},
        {"a range near 2^63", text({record(0, "T", children("9223372036854775807-1")), record(1, "T")}),
         "std: Child range 9223372036854775807-1 out of bounds"},
        {"too many attributes", text({record(0, "T", "__meta: !__ {" + attributes + "}")}),
         "std: More than 64 attributes on one record"},
    };
    for (const auto &c : cases)
        EXPECT_EQ(readFailure(c.text), c.failure) << c.what;
}

TEST(SISLSerialReaderWriter, NestingDeeperThanTheBoundIsRefused)
{
    // Record n holds record n + 1: a chain a million records deep (a tenth of
    // that in the slower sanitizer build, still far past the bound).
    QByteArray chain = "{";
    constexpr int kDepth = kSanitized ? 100000 : 1000000;
    for (int n = 0; n < kDepth; ++n) {
        chain += "__struct_" + QByteArray::number(n) + ":!T{";
        if (n + 1 < kDepth)
            chain += "__children:\"" + QByteArray::number(n + 1) + '-' + QByteArray::number(n + 1) + '"';
        chain += "},";
    }
    chain += "}";
    EXPECT_EQ(readFailure(chain), "std: Records nested more than 512 deep");
}

TEST(SISLSerialReaderWriter, TextCutAtAnyByteFailsCleanlyOrReadsWhatIsComplete)
{
    const QDomDocument dom = documentOf(parent("a", {parent("b", {withText("c", "1\n\x01")}, {{"k", "v w"}}),
                                                   leaf("a b", {{"n", ""}})},
                                              {{"name", "x"}}));
    for (const bool pretty : {false, true}) {
        const QByteArray whole = sislOf(dom, pretty);
        for (int size = 0; size < whole.size(); ++size) {
            const QByteArray cut = whole.left(size);
            QDomDocument doc(QStringLiteral("SerialStream"));
            MemoryBuffer buffer = bufferOf(cut);
            try {
                // A text cut between members still links (record 0 alone
                // before its child range; later, every record is needed).
                SISLSerialReaderWriter().deserialise(doc, &buffer);
                EXPECT_EQ(doc.documentElement().tagName(), QStringLiteral("a")) << "pretty " << pretty << " size " << size;
            } catch (const std::exception &) {
                EXPECT_TRUE(doc.documentElement().isNull()) << "nothing is kept of a failed read";
            }
        }
    }
}

// ---------------------------------------------------------------------------
// Memory: hostile text of 10 MB is refused or read with a peak below 20 times
// its size. Each read runs in a child process whose peak resident memory is
// reset first and then compared with what it was.
// ---------------------------------------------------------------------------

namespace {

// Under the sanitizer build the texts are smaller: the reads are checked all
// the same, while the memory, which its allocator makes meaningless, is not.
constexpr int kHostileSize = kSanitized ? 2 << 20 : 10 << 20;

struct Outcome
{
    bool finished = false;
    bool refused = false;
    long long peakGrowth = -1; // bytes
};

Outcome readMeasured(const QByteArray &hostile)
{
    const auto readIt = [&hostile]() -> bool {
        QDomDocument doc(QStringLiteral("SerialStream"));
        MemoryBuffer buffer = bufferOf(hostile);
        try {
            SISLSerialReaderWriter().deserialise(doc, &buffer);
            return !doc.documentElement().isNull();
        } catch (const std::exception &) {
            return false;
        }
    };
    Outcome outcome;
    if (!kMeasured) {
        outcome.refused = !readIt();
        outcome.finished = true;
        return outcome;
    }
    int channel[2];
    if (pipe(channel) != 0)
        return outcome;
    const pid_t child = fork();
    if (child == 0) {
        close(channel[0]);
        const long long before = statusKiB("VmRSS:");
        QFile reset(QStringLiteral("/proc/self/clear_refs"));
        if (reset.open(QIODevice::WriteOnly))
            reset.write("5"); // resets the peak to what is resident now
        reset.close();
        const bool read = readIt();
        const long long figures[2] = {read ? 0 : 1, (statusKiB("VmHWM:") - before) * 1024};
        (void)!write(channel[1], figures, sizeof figures);
        _exit(0);
    }
    close(channel[1]);
    long long figures[2] = {-1, -1};
    const bool got = ::read(channel[0], figures, sizeof figures) == sizeof figures;
    close(channel[0]);
    int status = 0;
    waitpid(child, &status, 0);
    outcome.finished = got && WIFEXITED(status);
    outcome.refused = figures[0] == 1;
    outcome.peakGrowth = figures[1];
    return outcome;
}

// Records of the size given, repeated until the text holds about 10 MB: record
// 0 holds all the others.
QByteArray flatText(const std::function<QByteArray(int)> &member)
{
    QByteArray body;
    int count = 1;
    while (body.size() < kHostileSize) {
        body += ",__struct_" + QByteArray::number(count) + ": !VALUE {" + member(count) + "}";
        ++count;
    }
    return "{__struct_0: !FileStream {__children: !__ \"" + QByteArray::number(count - 1) + "-1\"}" + body + "}";
}

} // namespace

TEST(SISLSerialReaderWriter, HostileTextOfTenMegabytesStaysWithinTwentyTimesItsSize)
{
    const QByteArray attributes = "__meta: !__ {name: !__ \"count\",offset: !__ \"\",size: !__ \"\",eitem: !__ \"1\","
                                  "estrc: !__ \"\",type_string: !__ \"\",streamname: !__ \"\",cameraname: !__ \"\"},";
    QByteArray chain = "{";
    for (int n = 0; chain.size() < kHostileSize; ++n)
        chain += "__struct_" + QByteArray::number(n) + ":!T{__children:\"" + QByteArray::number(n + 1) + '-'
                 + QByteArray::number(n + 1) + "\"},";
    QByteArray sixtyFour;
    for (int i = 0; i < 64; ++i)
        sixtyFour += QByteArray(1, char('A' + i / 26)) + QByteArray(1, char('a' + i % 26)) + ":\"\"";
    const struct { const char *what; QByteArray text; bool mayBeRead; } cases[] = {
        {"group opens only", QByteArray(kHostileSize, '{'), false},
        {"records as a tree is written", flatText([&](int n) { return attributes + "__data: !__ \"" + QByteArray::number(n) + "\""; }), true},
        {"bare records", flatText([](int) { return QByteArray(); }), true},
        {"one attribute each, near the bound", flatText([](int) { return QByteArray("__meta:{a:\"0123456789abcde\"}"); }), true},
        {"eight empty attributes each", flatText([](int) { return QByteArray("__meta:{a:\"\"b:\"\"c:\"\"d:\"\"e:\"\"f:\"\"g:\"\"h:\"\"}"); }), false},
        {"sixty-four attributes each", flatText([&](int) { return "__meta:{" + sixtyFour + "}"; }), false},
        {"one value of escapes", "{__struct_0: !v {__data: !__ \"" + QByteArray(kHostileSize / 4, 'x').replace("x", "\\x00") + "\"}}", true},
        {"a chain", chain + "}", false},
    };
    for (const auto &c : cases) {
        const Outcome outcome = readMeasured(c.text);
        ASSERT_TRUE(outcome.finished) << c.what;
        if (!c.mayBeRead) {
            EXPECT_TRUE(outcome.refused) << c.what;
        }
        if (kMeasured) {
            EXPECT_LT(outcome.peakGrowth, 20LL * c.text.size())
                << c.what << ": " << outcome.peakGrowth / double(c.text.size()) << " times its size";
        }
        std::cout << c.what << ": " << (outcome.refused ? "refused" : "read");
        if (kMeasured)
            std::cout << ", peak " << outcome.peakGrowth / double(c.text.size()) << " times its size";
        std::cout << '\n';
    }
}
