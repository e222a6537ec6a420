#include "recording/formats.h"
#include "recording/target_file.h"

#include <QJsonArray>
#include <QJsonDocument>

namespace zrnrec
{
namespace
{

class RawStack : public ExportTarget
{
public:
    explicit RawStack(const ExportJob& job)
        : m_job(job)
        , m_file(job.path)
        , m_table(m_file.path() + ".json")
    {
    }

    void write(const ExportFrame& frame) override
    {
        for (const zrn::Image& image : frame.frame.images()) {
            m_file.write(image.pixels());
        }
        QJsonObject json;
        for (const FrameColumn& column : frameColumns()) {
            if (const FrameFacts::Value value = column.valueOf(frame.facts)) {
                json[nameOf(column)] = static_cast<qint64>(*value);
            }
        }
        m_frames.append(json);
    }

    void finish() override
    {
        m_table.write(QJsonDocument(description()).toJson().toStdString());
        TargetFile::commit({&m_file, &m_table});
    }

private:
    static QString nameOf(const FrameColumn& column)
    {
        using Unit = FrameColumn::Unit;
        const char* const unit = column.unit == Unit::Nanoseconds || column.unit == Unit::Date
                                     ? "_ns"
                                 : column.unit == Unit::Microseconds ? "_us"
                                                                     : "";
        return QLatin1String(column.name) + QLatin1String(unit);
    }

    [[nodiscard]] QJsonObject description() const
    {
        const Stack& stack = m_job.stack;
        QJsonArray images;
        for (const char letter : stack.letters) {
            images.append(QString(QLatin1Char(letter)));
        }
        return {
            {QStringLiteral("type"), QStringLiteral("uint8")},
            {QStringLiteral("shape"),
             QJsonArray{m_frames.size(), images.size(), static_cast<qint64>(stack.height),
                        static_cast<qint64>(stack.width)}},
            {QStringLiteral("axes"), QJsonArray{QStringLiteral("frame"), QStringLiteral("image"),
                                                QStringLiteral("row"), QStringLiteral("column")}},
            {QStringLiteral("images"), images},
            {QStringLiteral("recording"), QString::fromStdString(m_job.recording.file)},
            {QStringLiteral("metadata"), m_job.recording.metadata},
            {QStringLiteral("notes"), toJson(m_job.recording.notes)},
            {QStringLiteral("frames"), m_frames},
        };
    }

    const ExportJob m_job;
    TargetFile m_file;
    TargetFile m_table;
    QJsonArray m_frames;
};

} // namespace

std::unique_ptr<ExportTarget> makeRawStack(const ExportJob& job)
{
    return std::make_unique<RawStack>(job);
}

} // namespace zrnrec
