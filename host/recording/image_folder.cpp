#include "client/error.h"
#include "common/date_text.h"
#include "common/image_writer.h"
#include "common/writer_pool.h"
#include "recording/formats.h"
#include "recording/target_file.h"

#include <QDir>

#include <atomic>

namespace zrnrec
{
namespace
{

/// A file for each image, named by position, frame number and letter.
class ImageFolder : public ExportTarget
{
public:
    enum class Kind { Png, AsDelivered };

    ImageFolder(const ExportJob& job, Kind kind)
        : m_job(job)
        , m_folder(QString::fromLocal8Bit(job.path.c_str()))
        , m_kind(kind)
    {
        if (!QDir().mkpath(m_folder)) {
            throw zrn::Error(zrn::Error::Kind::Recording, "NotWritable",
                             "the folder " + job.path + " cannot be made");
        }
    }

    void write(const ExportFrame& frame) override
    {
        m_pool.add(frame.frame.bytes(), [this, frame] { return writeNow(frame); });
        ++m_taken;
        checkFailure();
    }

    void finish() override
    {
        constexpr std::chrono::milliseconds glance(100);
        while (!m_pool.waitForAll(glance)) {
            m_job.onWaiting(std::to_string(m_pool.left()) + " frames are still to be written");
        }
        checkFailure();
        if (m_written < m_taken) {
            failToWrite(m_job.path, "the last frames were not written");
        }
    }

    [[nodiscard]] int kept() const override { return m_written; }

private:
    /// Few enough to be written soon after somebody wants it to end.
    static constexpr std::uint64_t waitingBytes = std::uint64_t{64} << 20;

    QString writeNow(const ExportFrame& exported)
    {
        if (m_job.isStopped()) {
            return {};
        }
        const zrn::Frame& frame = exported.frame;
        for (const zrn::Image& image : frame.images()) {
            const QString path =
                QStringLiteral("%1/%2_%3_%4.%5")
                    .arg(m_folder)
                    .arg(exported.facts.position, 6, 10, QLatin1Char('0'))
                    .arg(frame.step.number)
                    .arg(QLatin1Char(image.letter))
                    .arg(m_kind == Kind::Png ? QStringLiteral("png") : QStringLiteral("raw"));
            const QString problem = m_kind == Kind::Png
                                        ? zrnhost::writePng(path, image, frame.width, frame.height,
                                                            textsOf(image, exported.facts))
                                        : zrnhost::writeRaw(path, image);
            if (!problem.isEmpty()) {
                return problem;
            }
        }
        ++m_written;
        return {};
    }

    [[nodiscard]] zrnhost::ImageTexts textsOf(const zrn::Image& image,
                                              const FrameFacts& facts) const
    {
        zrnhost::ImageTexts texts = {
            {QStringLiteral("Serial"),
             m_job.recording.metadata[QLatin1String("serial")].toString()},
            {QStringLiteral("Image"), QString(QLatin1Char(image.letter))},
            {QStringLiteral("Frame number"), QString::number(facts.number)},
            {QStringLiteral("Arrival"), QStringLiteral("%1 ns").arg(facts.arrival)}};
        if (facts.utc) {
            texts.emplace_back(QStringLiteral("Date"),
                               QString::fromStdString(zrnhost::dateText(*facts.utc)));
        }
        if (facts.exposure) {
            texts.emplace_back(QStringLiteral("Exposure"),
                               QStringLiteral("%1 us").arg(*facts.exposure));
        }
        if (facts.gain) {
            texts.emplace_back(QStringLiteral("Gain"), QString::number(*facts.gain));
        }
        return texts;
    }

    void checkFailure() const
    {
        if (const QString failure = m_pool.failure(); !failure.isEmpty()) {
            throw zrn::Error(zrn::Error::Kind::Recording, "NotWritable", failure.toStdString());
        }
    }

    const ExportJob m_job;
    const QString m_folder;
    const Kind m_kind;
    int m_taken = 0;
    std::atomic<int> m_written{0};
    zrnhost::WriterPool m_pool{waitingBytes}; // last: its threads use the rest
};

} // namespace

std::unique_ptr<ExportTarget> makePngFolder(const ExportJob& job)
{
    return std::make_unique<ImageFolder>(job, ImageFolder::Kind::Png);
}

std::unique_ptr<ExportTarget> makeImageFolder(const ExportJob& job)
{
    return std::make_unique<ImageFolder>(job, ImageFolder::Kind::AsDelivered);
}

} // namespace zrnrec
