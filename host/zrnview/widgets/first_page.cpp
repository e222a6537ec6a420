#include "zrnview/widgets/first_page.h"

#include "zrnview/widgets/theme.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QScrollArea>
#include <QVBoxLayout>

#include <exception>

namespace zrnview
{
namespace
{

QString lineOf(const zrn::Finding& finding, const Colours& colours)
{
    const QColor colour = finding.verdict == zrn::Verdict::Problem   ? colours.fault
                          : finding.verdict == zrn::Verdict::Warning ? colours.attention
                          : finding.verdict == zrn::Verdict::Good    ? colours.good
                                                                     : colours.dimText;
    QString line = QStringLiteral("<p><font color='%1'><b>%2</b></font> %3")
                       .arg(colour.name(), QLatin1String(zrn::verdictName(finding.verdict)),
                            QString::fromStdString(finding.message).toHtmlEscaped());
    if (!finding.remedy.empty()) {
        line += QStringLiteral("<br>→ %1")
                    .arg(QString::fromStdString(finding.remedy)
                             .toHtmlEscaped()
                             .replace(QLatin1Char('\n'), QLatin1String("<br>")));
    }
    return line + QStringLiteral("</p>");
}

} // namespace

FirstPage::FirstPage(Examination examine, QWidget* parent)
    : QWidget(parent)
    , m_examine(std::move(examine))
    , m_text(new QLabel(this))
    , m_doctor(new QPushButton(tr("Find out &why"), this))
    , m_virtual(new QPushButton(tr("Try a v&irtual camera"), this))
    , m_recording(new QPushButton(tr("Ope&n a recording…"), this))
    , m_findings(new QLabel)
{
    m_text->setAlignment(Qt::AlignCenter);
    m_text->setWordWrap(true);
    m_doctor->setToolTip(tr("Looks at cables, access rights, libraries and the driver, as 'zrncam "
                            "doctor' does, and opens each free camera for a moment"));
    m_virtual->setToolTip(tr("Opens a second window on a simulated camera"));
    m_findings->setTextFormat(Qt::RichText);
    m_findings->setWordWrap(true);
    m_findings->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    m_findings->setAccessibleName(tr("Findings"));
    m_findings->setAlignment(Qt::AlignTop | Qt::AlignLeft);
    auto* area = new QScrollArea(this);
    area->setWidget(m_findings);
    area->setWidgetResizable(true);
    area->setFrameShape(QFrame::NoFrame);
    auto* buttons = new QHBoxLayout;
    buttons->addStretch(1);
    for (QPushButton* button : {m_doctor, m_virtual, m_recording}) {
        buttons->addWidget(button);
    }
    buttons->addStretch(1);
    auto* layout = new QVBoxLayout(this);
    layout->addStretch(1);
    layout->addWidget(m_text);
    layout->addLayout(buttons);
    layout->addWidget(area, 3);
    connect(m_doctor, &QPushButton::clicked, this, &FirstPage::startExamination);
    connect(m_virtual, &QPushButton::clicked, this, &FirstPage::virtualCameraRequested);
    connect(m_recording, &QPushButton::clicked, this, &FirstPage::recordingRequested);
}

FirstPage::~FirstPage()
{
    if (m_thread.joinable()) {
        m_thread.join();
    }
}

void FirstPage::setText(const QString& text)
{
    m_text->setText(QStringLiteral("<big>%1</big>").arg(text.toHtmlEscaped()));
}

QString FirstPage::text() const
{
    return m_text->text();
}

QString FirstPage::findings() const
{
    return m_findings->text();
}

void FirstPage::startExamination()
{
    if (m_thread.joinable()) {
        m_thread.join();
    }
    m_doctor->setEnabled(false);
    m_findings->setText(tr("Looking at the bus, the system and the driver…"));
    m_thread = std::thread([this] {
        std::vector<zrn::Finding> findings;
        try {
            findings = m_examine();
        } catch (const std::exception& error) {
            findings = {{"doctor", zrn::Verdict::Problem, error.what(), {}}};
        }
        QMetaObject::invokeMethod(this, [this, findings] { show(findings); });
    });
}

void FirstPage::show(const std::vector<zrn::Finding>& findings)
{
    const Colours colours = coloursFor(palette());
    QString text;
    for (const zrn::Finding& finding : findings) {
        text += lineOf(finding, colours);
    }
    m_findings->setText(text);
    m_doctor->setEnabled(true);
}

} // namespace zrnview
