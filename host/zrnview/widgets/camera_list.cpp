#include "zrnview/widgets/camera_list.h"

#include "zrnview/widgets/theme.h"

#include <QSignalBlocker>
#include <QVBoxLayout>

namespace zrnview
{
namespace
{

QColor stateColour(const CameraDevice& device, const Colours& colours)
{
    switch (device.health().state) {
    case CameraState::Streaming:
        return colours.good;
    case CameraState::Silent:
        return colours.attention;
    case CameraState::Lost:
    case CameraState::Unusable:
        return colours.fault;
    default:
        return colours.dimText;
    }
}

} // namespace

QString stateText(const CameraDevice& device)
{
    switch (device.health().state) {
    case CameraState::Absent:
        return CameraList::tr("not connected");
    case CameraState::Connecting:
        return CameraList::tr("connecting");
    case CameraState::Unusable:
        return CameraList::tr("not usable");
    case CameraState::Idle:
        return CameraList::tr("stopped");
    case CameraState::Streaming:
        return device.isRecording() ? CameraList::tr("recording") : CameraList::tr("streaming");
    case CameraState::Silent:
        return CameraList::tr("no frames");
    case CameraState::Lost:
        return CameraList::tr("unplugged?");
    }
    return {};
}

QString adviceOf(const Bench& bench)
{
    switch (bench.state()) {
    case Bench::State::Loading:
        return CameraList::tr("Loading the driver…");
    case Bench::State::Failed:
        return bench.description();
    case Bench::State::Searching:
        return CameraList::tr("Searching…");
    case Bench::State::Ready:
        break;
    }
    if (!bench.bus().blocked.isEmpty()) {
        return CameraList::tr("This user may not open %1: put the line %2 into %3, run 'udevadm "
                              "control --reload' and replug the camera.")
            .arg(bench.bus().blocked.join(QStringLiteral(", ")), QLatin1String(zrnhost::udevRule),
                 QLatin1String(zrnhost::udevRulePath));
    }
    if (bench.hasNewCamera()) {
        return CameraList::tr("A camera was plugged in. Search again to use it.");
    }
    return bench.devices().empty()
               ? CameraList::tr("No camera found. Check its cable and supply: it appears here as "
                                "soon as it is on the bus.")
               : QString();
}

CameraList::CameraList(Bench& bench, QWidget* parent)
    : QWidget(parent)
    , m_bench(bench)
    , m_list(new QListWidget(this))
    , m_status(new QLabel(this))
    , m_search(new QPushButton(tr("Search &again"), this))
{
    m_list->setAccessibleName(tr("Cameras"));
    m_list->setMinimumHeight(fontMetrics().height() * 3);
    m_status->setWordWrap(true);
    m_search->setToolTip(tr("Looks for cameras on the bus (F5). Streams pause for a moment."));
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(m_list, 1);
    layout->addWidget(m_status);
    layout->addWidget(m_search, 0, Qt::AlignLeft);

    connect(m_search, &QPushButton::clicked, &m_bench, &Bench::search);
    connect(&m_bench, &Bench::deviceAdded, this, &CameraList::addDevice);
    connect(&m_bench, &Bench::stateChanged, this, &CameraList::updateSearch);
    connect(&m_bench, &Bench::busChanged, this, &CameraList::updateSearch);
    connect(m_list, &QListWidget::itemChanged, this, [this](QListWidgetItem* entry) {
        emit shownChanged(deviceOf(*entry), entry->checkState() == Qt::Checked);
    });
    connect(m_list, &QListWidget::currentItemChanged, this, [this](QListWidgetItem* entry) {
        if (entry) {
            emit chosen(deviceOf(*entry));
        }
    });
    updateSearch();
}

void CameraList::setShown(const CameraDevice& device, bool shown)
{
    const QSignalBlocker blocker(m_list);
    entryOf(device)->setCheckState(shown ? Qt::Checked : Qt::Unchecked);
}

void CameraList::addDevice(CameraDevice* device)
{
    {
        const QSignalBlocker blocker(m_list);
        auto* entry = new QListWidgetItem(device->serial(), m_list);
        entry->setData(Qt::UserRole, device->serial());
        entry->setFlags(entry->flags() | Qt::ItemIsUserCheckable);
        entry->setCheckState(Qt::Unchecked);
    }
    connect(device, &CameraDevice::healthChanged, this, [this, device] { updateEntry(*device); });
    updateEntry(*device);
}

void CameraList::updateEntry(const CameraDevice& device)
{
    const QSignalBlocker blocker(m_list);
    QListWidgetItem* entry = entryOf(device);
    entry->setText(QStringLiteral("%1   %2").arg(device.serial(), stateText(device)));
    entry->setForeground(stateColour(device, coloursFor(palette())));
    updateSearch();
}

void CameraList::updateSearch()
{
    m_search->setEnabled(m_bench.state() == Bench::State::Ready && !m_bench.isRecording());
    const QString text = adviceOf(m_bench);
    m_status->setText(text);
    m_status->setVisible(!text.isEmpty());
    fitStatus();
}

void CameraList::resizeEvent(QResizeEvent* event)
{
    QWidget::resizeEvent(event);
    fitStatus();
}

void CameraList::fitStatus()
{
    // A dock asks for a width alone, and would give wrapped text the height of one line.
    const int width = contentsRect().width() - layout()->contentsMargins().left() -
                      layout()->contentsMargins().right();
    m_status->setMinimumHeight(m_status->heightForWidth(width));
}

QListWidgetItem* CameraList::entryOf(const CameraDevice& device) const
{
    for (int row = 0; row < m_list->count(); ++row) {
        if (m_list->item(row)->data(Qt::UserRole).toString() == device.serial()) {
            return m_list->item(row);
        }
    }
    return nullptr;
}

CameraDevice* CameraList::deviceOf(const QListWidgetItem& entry) const
{
    for (CameraDevice* device : m_bench.devices()) {
        if (device->serial() == entry.data(Qt::UserRole).toString()) {
            return device;
        }
    }
    return nullptr;
}

} // namespace zrnview
