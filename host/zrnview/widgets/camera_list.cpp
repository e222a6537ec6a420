#include "zrnview/widgets/camera_list.h"

#include "client/access_remedy.h"
#include "zrnview/device/bench.h"
#include "zrnview/widgets/theme.h"

#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QSignalBlocker>
#include <QVBoxLayout>

#include <algorithm>

namespace zrnview
{
namespace
{

constexpr int serialRole = Qt::UserRole;
constexpr int portRole = Qt::UserRole + 1; ///< of a camera that this program does not have

QString useOf(const zrn::BusCamera& camera)
{
    return !camera.accessible ? CameraList::tr("no permission")
           : camera.isFree()
               ? CameraList::tr("free")
               : CameraList::tr("in use by %1").arg(QString::fromStdString(camera.holderText()));
}

QString textOf(const zrn::BusCamera& camera)
{
    const QString port = QString::fromStdString(camera.port);
    const QString name =
        camera.serial.empty()
            ? CameraList::tr("camera at %1").arg(port)
            : CameraList::tr("%1 at %2").arg(QString::fromStdString(camera.serial), port);
    return QStringLiteral("%1   %2").arg(name, useOf(camera));
}

/// Device nodes of the cameras that this user may not open.
/// Nodes that this user may not open, and what helps with the first of them; empty without any.
QString blockedText(const Bench& bench)
{
    QStringList nodes;
    QString remedy;
    for (const zrn::BusCamera& camera : bench.bus()) {
        if (!camera.accessible) {
            nodes += QString::fromStdString(camera.node());
            remedy = remedy.isEmpty() ? QString::fromStdString(zrn::accessRemedy(camera)) : remedy;
        }
    }
    return nodes.isEmpty() ? QString()
                           : CameraList::tr("This user may not open %1: %2.")
                                 .arg(nodes.join(QStringLiteral(", ")), remedy);
}

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
        return device.health().refusal.isEmpty() ? CameraList::tr("unplugged?")
                                                 : CameraList::tr("not available");
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
    case Bench::State::Ready:
        break;
    }
    const QString blocked = blockedText(bench);
    if (!blocked.isEmpty()) {
        return blocked;
    }
    if (!bench.devices().empty()) {
        return {};
    }
    const std::vector<zrn::BusCamera> others = bench.others();
    if (others.empty()) {
        return CameraList::tr(
            "No camera found. Check its cable and supply: it appears here as soon "
            "as it is on the bus.");
    }
    return std::ranges::any_of(others, &zrn::BusCamera::isFree)
               ? CameraList::tr("Tick a camera to use it.")
               : CameraList::tr(
                     "Other programs use every camera on the bus. Each can be ticked here "
                     "as soon as it is free.");
}

CameraList::CameraList(Bench& bench, QWidget* parent)
    : QWidget(parent)
    , m_bench(bench)
    , m_list(new QListWidget(this))
    , m_status(new QLabel(this))
    , m_look(new QPushButton(tr("Look &again"), this))
{
    m_list->setAccessibleName(tr("Cameras"));
    m_list->setMinimumHeight(fontMetrics().height() * 3);
    m_status->setWordWrap(true);
    m_look->setToolTip(
        tr("Looks at the bus at once, and tries again what could not be opened (F5)."));
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(m_list, 1);
    layout->addWidget(m_status);
    layout->addWidget(m_look, 0, Qt::AlignLeft);

    connect(m_look, &QPushButton::clicked, &m_bench, &Bench::lookAgain);
    connect(&m_bench, &Bench::deviceAdded, this, &CameraList::addDevice);
    connect(&m_bench, &Bench::stateChanged, this, &CameraList::updateStatus);
    connect(&m_bench, &Bench::busChanged, this, &CameraList::updateOthers);
    connect(m_list, &QListWidget::itemChanged, this, [this](QListWidgetItem* entry) {
        if (CameraDevice* device = deviceOf(*entry)) {
            emit shownChanged(device, entry->checkState() == Qt::Checked);
        } else {
            m_bench.take(entry->data(portRole).toString());
        }
    });
    connect(m_list, &QListWidget::currentItemChanged, this, [this](QListWidgetItem* entry) {
        CameraDevice* device = entry ? deviceOf(*entry) : nullptr;
        if (device) {
            emit chosen(device);
        }
    });
    updateStatus();
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
        entry->setData(serialRole, device->serial());
        entry->setFlags(entry->flags() | Qt::ItemIsUserCheckable);
        entry->setCheckState(Qt::Unchecked);
    }
    connect(device, &CameraDevice::healthChanged, this, [this, device] { updateEntry(*device); });
    updateEntry(*device);
    updateOthers();
}

void CameraList::updateEntry(const CameraDevice& device)
{
    const QSignalBlocker blocker(m_list);
    QListWidgetItem* entry = entryOf(device);
    entry->setText(QStringLiteral("%1   %2").arg(device.serial(), useText(device)));
    entry->setForeground(stateColour(device, coloursFor(palette())));
    updateStatus();
}

QString CameraList::useText(const CameraDevice& device) const
{
    const auto onBus =
        std::ranges::find(m_bench.bus(), device.serial().toStdString(), &zrn::BusCamera::serial);
    return device.isAway() && onBus != m_bench.bus().end() && !onBus->isFree() ? useOf(*onBus)
                                                                               : stateText(device);
}

void CameraList::updateOthers()
{
    {
        const QSignalBlocker blocker(m_list);
        for (int row = m_list->count() - 1; row >= 0; --row) {
            if (m_list->item(row)->data(serialRole).toString().isEmpty()) {
                delete m_list->takeItem(row);
            }
        }
        for (const zrn::BusCamera& other : m_bench.others()) {
            auto* entry = new QListWidgetItem(textOf(other), m_list);
            entry->setData(portRole, QString::fromStdString(other.port));
            entry->setFlags(other.isFree() ? entry->flags() | Qt::ItemIsUserCheckable
                                           : Qt::ItemIsEnabled);
            if (other.isFree()) {
                entry->setCheckState(Qt::Unchecked);
            }
            entry->setForeground(coloursFor(palette()).dimText);
        }
    }
    for (const CameraDevice* device : m_bench.devices()) {
        updateEntry(*device);
    }
    updateStatus();
}

void CameraList::updateStatus()
{
    m_look->setEnabled(m_bench.state() == Bench::State::Ready);
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
        if (m_list->item(row)->data(serialRole).toString() == device.serial()) {
            return m_list->item(row);
        }
    }
    return nullptr;
}

CameraDevice* CameraList::deviceOf(const QListWidgetItem& entry) const
{
    for (CameraDevice* device : m_bench.devices()) {
        if (device->serial() == entry.data(serialRole).toString()) {
            return device;
        }
    }
    return nullptr;
}

} // namespace zrnview
