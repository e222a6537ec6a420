#include "common/date_text.h"
#include "recording/formats.h"
#include "recording/target_file.h"

#include <QString>

#include <cstdlib>

namespace zrnrec
{
namespace
{

/// Nanoseconds as seconds with every digit, which no floating-point number keeps.
std::string secondsText(std::int64_t nanoseconds)
{
    constexpr std::int64_t perSecond = 1'000'000'000;
    constexpr int digits = 9;
    const std::lldiv_t parts = std::lldiv(nanoseconds, perSecond);
    return (nanoseconds < 0 ? "-" : "") + std::to_string(std::llabs(parts.quot)) + '.' +
           QString::number(std::llabs(parts.rem))
               .rightJustified(digits, QLatin1Char('0'))
               .toStdString();
}

/// Without a comma or a quote in any cell.
class CsvTable : public ExportTarget
{
public:
    explicit CsvTable(const ExportJob& job)
        : m_file(job.path, TargetFile::Kind::FileOrPipe)
    {
        std::string header;
        for (const FrameColumn& column : frameColumns()) {
            header += column.name;
            header += column.unit == FrameColumn::Unit::Nanoseconds    ? "_s,"
                      : column.unit == FrameColumn::Unit::Microseconds ? "_us,"
                                                                       : ",";
        }
        m_file.write(header + "interval_s,width,height,images\n");
    }

    void write(const ExportFrame& frame) override
    {
        std::string line;
        for (const FrameColumn& column : frameColumns()) {
            if (const FrameFacts::Value value = column.valueOf(frame.facts)) {
                line += column.unit == FrameColumn::Unit::Nanoseconds ? secondsText(*value)
                        : column.unit == FrameColumn::Unit::Date      ? zrnhost::dateText(*value)
                                                                      : std::to_string(*value);
            }
            line += ',';
        }
        if (m_before) {
            line += secondsText(interval(*m_before, frame.facts.arrival));
        }
        m_before = frame.facts.arrival;
        line += ',' + std::to_string(frame.frame.width) + ',' + std::to_string(frame.frame.height) +
                ',';
        for (const zrn::Image& image : frame.frame.images()) {
            line += image.letter;
        }
        m_file.write(line + '\n');
    }

    void finish() override { m_file.commit(); }

private:
    TargetFile m_file;
    std::optional<std::int64_t> m_before; ///< arrival of the frame before
};

} // namespace

std::unique_ptr<ExportTarget> makeCsvTable(const ExportJob& job)
{
    return std::make_unique<CsvTable>(job);
}

} // namespace zrnrec
