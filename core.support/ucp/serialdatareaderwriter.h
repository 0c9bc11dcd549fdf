#pragma once

#include <QString>

class MemoryBuffer;
class QDomDocument;

// Turns the DOM form of a serialised structure tree into bytes and back. The
// XML and SISL forms implement it; the slot order follows the interface the
// tree export and import are built on.
class SerialDataReaderWriter
{
public:
    SerialDataReaderWriter() = default;
    SerialDataReaderWriter(const SerialDataReaderWriter &) = delete;
    SerialDataReaderWriter &operator=(const SerialDataReaderWriter &) = delete;
    virtual ~SerialDataReaderWriter();

    // Writes the document at the start of the buffer.
    virtual bool serialise(QDomDocument &doc, MemoryBuffer *buffer) = 0;
    // Fills the (empty) document from the whole buffer.
    virtual bool deserialise(QDomDocument &doc, MemoryBuffer *buffer) = 0;
    // The archive entry name of a stream: "Id_<a>_<streamName>_<b>.<extension>",
    // where the extension "default" stands for the form's own. The first
    // argument is not used.
    virtual QString generateStreamName(QString unused, QString streamName, int a, int b, QString extension) = 0;

    void setPrettyPrint(bool pretty) { m_prettyPrint = pretty; }
    bool prettyPrint() const { return m_prettyPrint; }
    // Why the last deserialise() failed, in words; empty after a success.
    const QString &errorString() const { return m_errorString; }

protected:
    static QString formatStreamName(const QString &streamName, int a, int b, const QString &extension,
                                    const char *defaultExtension);
    void setErrorString(const QString &text) { m_errorString = text; }

private:
    bool m_prettyPrint = false;
    QString m_errorString;
};
