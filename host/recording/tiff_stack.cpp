#include "common/date_text.h"
#include "recording/formats.h"
#include "recording/target_file.h"

#include <QJsonDocument>
#include <QXmlStreamWriter>

#include <cerrno>
#include <cstring>
#include <memory>
#include <sys/stat.h>
#include <tiffio.h>
#include <unistd.h>

namespace zrnrec
{
namespace
{

/// What libtiff calls for its bytes; it tells of a failure only that there was one.
struct TiffFile {
    int descriptor = -1;
    int error = 0; ///< of the last call that failed
};

tmsize_t noted(TiffFile& file, ssize_t result)
{
    if (result < 0) {
        file.error = errno;
    }
    return result;
}

tmsize_t readBytes(thandle_t handle, void* bytes, tmsize_t size)
{
    auto& file = *static_cast<TiffFile*>(handle);
    return noted(file, ::read(file.descriptor, bytes, static_cast<std::size_t>(size)));
}

tmsize_t writeBytes(thandle_t handle, void* bytes, tmsize_t size)
{
    auto& file = *static_cast<TiffFile*>(handle);
    tmsize_t done = 0;
    while (done < size) {
        const ssize_t written = ::write(file.descriptor, static_cast<const char*>(bytes) + done,
                                        static_cast<std::size_t>(size - done));
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (noted(file, written) < 0) {
            return done;
        }
        done += written;
    }
    return done;
}

toff_t seekTo(thandle_t handle, toff_t offset, int whence)
{
    return static_cast<toff_t>(::lseek(static_cast<const TiffFile*>(handle)->descriptor,
                                       static_cast<off_t>(offset), whence));
}

int leaveOpen(thandle_t)
{
    return 0;
}

toff_t sizeOfFile(thandle_t handle)
{
    struct stat status {
    };
    const int result = ::fstat(static_cast<const TiffFile*>(handle)->descriptor, &status);
    return result == 0 ? static_cast<toff_t>(status.st_size) : 0;
}

struct CloseTiff {
    void operator()(TIFF* tiff) const { ::TIFFCleanup(tiff); } // without a last attempt to write
};
using TiffPointer = std::unique_ptr<TIFF, CloseTiff>;

/// A page for each image, those of a frame one behind the other.
class TiffStack : public ExportTarget
{
public:
    explicit TiffStack(const ExportJob& job)
        : m_job(job)
        , m_file(job.path)
    {
        ::TIFFSetErrorHandler(nullptr);
        ::TIFFSetWarningHandler(nullptr);
        m_bytes.descriptor = m_file.descriptor();
        m_tiff.reset(::TIFFClientOpen(m_file.path().c_str(), "w8", &m_bytes, readBytes, writeBytes,
                                      seekTo, leaveOpen, sizeOfFile, nullptr, nullptr));
        require(m_tiff != nullptr);
    }

    void write(const ExportFrame& frame) override
    {
        for (const zrn::Image& image : frame.frame.images()) {
            writePage(image);
        }
        m_facts.push_back(frame.facts);
    }

    void finish() override
    {
        // Only now all is known that it says.
        const QByteArray text = description();
        require(::TIFFSetDirectory(m_tiff.get(), 0) == 1 &&
                ::TIFFSetField(m_tiff.get(), TIFFTAG_IMAGEDESCRIPTION, text.constData()) == 1 &&
                ::TIFFRewriteDirectory(m_tiff.get()) == 1 && ::TIFFFlush(m_tiff.get()) == 1);
        m_file.commit();
    }

private:
    void require(bool isDone) const
    {
        if (!isDone) {
            failToWrite(m_file.path(),
                        m_bytes.error == 0 ? "libtiff refuses it" : std::strerror(m_bytes.error));
        }
    }

    void writePage(const zrn::Image& image)
    {
        TIFF* const tiff = m_tiff.get();
        const auto pixels = image.pixels();
        constexpr int bits = 8;
        ::TIFFSetField(tiff, TIFFTAG_SUBFILETYPE, FILETYPE_PAGE);
        ::TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, m_job.stack.width);
        ::TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, m_job.stack.height);
        ::TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, bits);
        ::TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, 1);
        ::TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
        ::TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
        ::TIFFSetField(tiff, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT);
        ::TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_NONE);
        ::TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, m_job.stack.height);
        const auto size = static_cast<tmsize_t>(pixels.size());
        m_file.noteWritten(pixels.size());
        require(::TIFFWriteRawStrip(tiff, 0, const_cast<std::uint8_t*>(pixels.data()), size) ==
                    size &&
                ::TIFFWriteDirectory(tiff) == 1);
    }

    /// The schema wants elements and their attributes in this order.
    [[nodiscard]] QByteArray description() const
    {
        const QString nameSpace =
            QStringLiteral("http://www.openmicroscopy.org/Schemas/OME/2016-06");
        QByteArray text;
        QXmlStreamWriter xml(&text);
        xml.writeStartDocument();
        xml.writeDefaultNamespace(nameSpace);
        xml.writeStartElement(nameSpace, QStringLiteral("OME"));
        xml.writeStartElement(QStringLiteral("Image"));
        xml.writeAttribute(QStringLiteral("ID"), QStringLiteral("Image:0"));
        xml.writeAttribute(QStringLiteral("Name"), QString::fromStdString(m_job.recording.file));
        if (!m_facts.empty() && m_facts.front().utc) {
            constexpr int wholeSeconds = 19; // "2026-11-21T10:15:00"
            xml.writeTextElement(
                QStringLiteral("AcquisitionDate"),
                QString::fromStdString(zrnhost::dateText(*m_facts.front().utc)).left(wholeSeconds));
        }
        writePixels(xml);
        for (const char* const reference : {"Annotation:0", "Annotation:1"}) {
            xml.writeStartElement(QStringLiteral("AnnotationRef"));
            xml.writeAttribute(QStringLiteral("ID"), QLatin1String(reference));
            xml.writeEndElement();
        }
        xml.writeEndElement();
        writeAnnotations(xml);
        xml.writeEndDocument();
        return text;
    }

    void writePixels(QXmlStreamWriter& xml) const
    {
        const Stack& stack = m_job.stack;
        const auto attribute = [&xml](const char* name, qint64 value) {
            xml.writeAttribute(QLatin1String(name), QString::number(value));
        };
        const auto images = static_cast<qint64>(stack.letters.size());
        const auto frames = static_cast<qint64>(m_facts.size());
        xml.writeStartElement(QStringLiteral("Pixels"));
        xml.writeAttribute(QStringLiteral("ID"), QStringLiteral("Pixels:0"));
        xml.writeAttribute(QStringLiteral("DimensionOrder"), QStringLiteral("XYCZT"));
        xml.writeAttribute(QStringLiteral("Type"), QStringLiteral("uint8"));
        attribute("SizeX", stack.width);
        attribute("SizeY", stack.height);
        attribute("SizeZ", 1);
        attribute("SizeC", images);
        attribute("SizeT", frames);
        for (qint64 channel = 0; channel < images; ++channel) {
            xml.writeStartElement(QStringLiteral("Channel"));
            xml.writeAttribute(QStringLiteral("ID"), QStringLiteral("Channel:0:%1").arg(channel));
            xml.writeAttribute(
                QStringLiteral("Name"),
                QString(QLatin1Char(stack.letters.at(static_cast<std::size_t>(channel)))));
            attribute("SamplesPerPixel", 1);
            xml.writeEndElement();
        }
        xml.writeStartElement(QStringLiteral("TiffData"));
        attribute("IFD", 0);
        attribute("PlaneCount", images * frames);
        xml.writeEndElement();
        for (std::size_t i = 0; i < m_facts.size(); ++i) {
            const FrameFacts& facts = m_facts[i];
            for (qint64 channel = 0; channel < images; ++channel) {
                xml.writeStartElement(QStringLiteral("Plane"));
                attribute("TheZ", 0);
                attribute("TheT", static_cast<qint64>(i));
                attribute("TheC", channel);
                xml.writeAttribute(
                    QStringLiteral("DeltaT"),
                    QString::number(static_cast<double>(facts.arrival) / 1e9, 'f', 9));
                if (facts.exposure) {
                    xml.writeAttribute(
                        QStringLiteral("ExposureTime"),
                        QString::number(static_cast<double>(*facts.exposure) / 1e6, 'f', 6));
                }
                xml.writeEndElement();
            }
        }
        xml.writeEndElement();
    }

    /// What the schema has no elements for: the frames' numbers and times, the recording's texts.
    void writeAnnotations(QXmlStreamWriter& xml) const
    {
        xml.writeStartElement(QStringLiteral("StructuredAnnotations"));
        beginAnnotation(xml, 0);
        xml.writeStartElement(QStringLiteral("Frames"));
        for (const FrameFacts& facts : m_facts) {
            xml.writeStartElement(QStringLiteral("Frame"));
            for (const FrameColumn& column : frameColumns()) {
                if (const FrameFacts::Value value = column.valueOf(facts)) {
                    xml.writeAttribute(QLatin1String(column.name), QString::number(*value));
                }
            }
            xml.writeEndElement();
        }
        endAnnotation(xml);
        beginAnnotation(xml, 1);
        xml.writeStartElement(QStringLiteral("Recording"));
        xml.writeTextElement(
            QStringLiteral("Metadata"),
            QString::fromUtf8(
                QJsonDocument(m_job.recording.metadata).toJson(QJsonDocument::Compact)));
        for (const NoteFacts& note : m_job.recording.notes) {
            xml.writeStartElement(QStringLiteral("Note"));
            xml.writeAttribute(QStringLiteral("time"), QString::number(note.time));
            xml.writeCharacters(
                QString::fromUtf8(QJsonDocument(note.content).toJson(QJsonDocument::Compact)));
            xml.writeEndElement();
        }
        endAnnotation(xml);
        xml.writeEndElement();
    }

    static void beginAnnotation(QXmlStreamWriter& xml, int number)
    {
        xml.writeStartElement(QStringLiteral("XMLAnnotation"));
        xml.writeAttribute(QStringLiteral("ID"), QStringLiteral("Annotation:%1").arg(number));
        xml.writeAttribute(QStringLiteral("Namespace"), QStringLiteral("zrncamera/recording"));
        xml.writeStartElement(QStringLiteral("Value"));
    }

    static void endAnnotation(QXmlStreamWriter& xml)
    {
        constexpr int elements = 3; // the content's own, Value, XMLAnnotation
        for (int i = 0; i < elements; ++i) {
            xml.writeEndElement();
        }
    }

    const ExportJob m_job;
    TargetFile m_file;
    TiffFile m_bytes;
    TiffPointer m_tiff;
    std::vector<FrameFacts> m_facts;
};

} // namespace

std::unique_ptr<ExportTarget> makeTiffStack(const ExportJob& job)
{
    return std::make_unique<TiffStack>(job);
}

} // namespace zrnrec
