#include "zrnview/widgets/property_table.h"

#include "client/result_codes.h"
#include "client/value.h"
#include "zrnview/widgets/theme.h"

#include <QApplication>
#include <QHeaderView>
#include <QLocale>

#include <array>

namespace zrnview
{
namespace
{

constexpr int answerCharacters = 20;
constexpr int shownDecimals = 2;

QString textOf(const zrn::Value& value)
{
    return QString::fromStdString(zrn::toText(value));
}

/// A value as it reads best; the tool tip holds it in full.
QString briefly(const zrn::Value& value)
{
    if (const auto* number = std::get_if<double>(&value)) {
        return QLocale().toString(*number, 'f', shownDecimals);
    }
    const auto* fields = std::get_if<std::vector<zrn::Field>>(&value);
    if (!fields) {
        return textOf(value);
    }
    QStringList parts;
    for (const zrn::Field& field : *fields) {
        parts +=
            QStringLiteral("%1 %2").arg(QString::fromStdString(field.name), briefly(field.value));
    }
    return parts.join(QStringLiteral(", "));
}

bool isWritable(const PropertyReading& reading)
{
    const zrn::PropertyInfo* info = zrn::findProperty(reading.key);
    return info && info->writable;
}

QString tipFor(const PropertyReading& reading)
{
    const zrn::PropertyInfo* info = zrn::findProperty(reading.key);
    QString tip = info ? QString::fromLatin1(info->tip) : QString();
    if (info && *info->carrier) {
        tip += PropertyModel::tr("\nUVC control: %1").arg(QString::fromUtf8(info->carrier));
    }
    const QString range = info ? QString::fromStdString(zrn::rangeText(*info)) : QString();
    if (!range.isEmpty()) {
        tip += PropertyModel::tr("\nRange: %1").arg(range);
    }
    if (reading.code == ErrorCode::Success) {
        tip += QLatin1Char('\n') + textOf(reading.value);
    } else {
        tip += QLatin1Char('\n') + QString::fromStdString(zrn::describeResult(reading.code));
    }
    return tip;
}

} // namespace

void PropertyModel::show(const PropertyReadings& readings)
{
    if (readings.size() != m_readings.size()) {
        beginResetModel();
        m_readings = readings;
        endResetModel();
        return;
    }
    for (std::size_t i = 0; i < readings.size(); ++i) {
        const bool changed =
            readings[i].value != m_readings[i].value || readings[i].code != m_readings[i].code;
        m_readings[i] = readings[i];
        if (changed) {
            const int row = static_cast<int>(i);
            emit dataChanged(index(row, Value), index(row, Answer));
        }
    }
}

int PropertyModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : static_cast<int>(m_readings.size());
}

int PropertyModel::columnCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : ColumnCount;
}

QVariant PropertyModel::data(const QModelIndex& index, int role) const
{
    const PropertyReading& reading = m_readings[static_cast<std::size_t>(index.row())];
    const bool readable = reading.code == ErrorCode::Success;
    switch (role) {
    case Qt::DisplayRole:
        if (index.column() == Key) {
            return QString::fromLatin1(reading.key);
        }
        if (index.column() == Value) {
            return readable ? briefly(reading.value) : QStringLiteral("–");
        }
        return readable ? tr("ok")
                        : QStringLiteral("%1 %2")
                              .arg(static_cast<unsigned int>(reading.code))
                              .arg(QLatin1String(zrn::resultName(reading.code)));
    case Qt::EditRole:
        return readable ? textOf(reading.value) : QString();
    case Qt::ToolTipRole:
        return tipFor(reading);
    case Qt::ForegroundRole:
        if (index.column() == Answer && !readable) {
            return coloursFor(QApplication::palette()).attention;
        }
        return index.column() == Value && !isWritable(reading)
                   ? QVariant(coloursFor(QApplication::palette()).dimText)
                   : QVariant();
    default:
        return {};
    }
}

QVariant PropertyModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole) {
        return {};
    }
    const std::array<QString, ColumnCount> titles = {tr("Property"), tr("Value"), tr("Answer")};
    return titles.at(static_cast<std::size_t>(section));
}

Qt::ItemFlags PropertyModel::flags(const QModelIndex& index) const
{
    const Qt::ItemFlags flags = QAbstractTableModel::flags(index);
    const PropertyReading& reading = m_readings[static_cast<std::size_t>(index.row())];
    return index.column() == Value && isWritable(reading) ? flags | Qt::ItemIsEditable : flags;
}

bool PropertyModel::setData(const QModelIndex& index, const QVariant& value, int role)
{
    if (role != Qt::EditRole || index.column() != Value) {
        return false;
    }
    const PropertyReading& reading = m_readings[static_cast<std::size_t>(index.row())];
    const zrn::PropertyInfo* info = zrn::findProperty(reading.key);
    const std::optional<zrn::Value> typed =
        info ? zrn::parseValue(*info, value.toString().toStdString()) : std::nullopt;
    if (!typed) {
        return false;
    }
    emit edited(reading.key, *typed);
    return true;
}

PropertyTable::PropertyTable(CameraDevice& device, QWidget* parent)
    : QTableView(parent)
    , m_device(device)
    , m_model(new PropertyModel(this))
{
    setModel(m_model);
    setAlternatingRowColors(true);
    setShowGrid(false);
    setSelectionBehavior(SelectRows);
    setSelectionMode(SingleSelection);
    setWordWrap(false);
    setTabKeyNavigation(false);        // Tab leaves the table; the arrow keys move in it
    setTextElideMode(Qt::ElideMiddle); // serials differ at their ends
    verticalHeader()->hide();
    verticalHeader()->setSectionResizeMode(QHeaderView::ResizeToContents);
    horizontalHeader()->setSectionResizeMode(PropertyModel::Key, QHeaderView::ResizeToContents);
    horizontalHeader()->setSectionResizeMode(PropertyModel::Value, QHeaderView::Stretch);
    horizontalHeader()->resizeSection(PropertyModel::Answer,
                                      fontMetrics().averageCharWidth() * answerCharacters);
    horizontalHeader()->setDefaultAlignment(Qt::AlignLeft | Qt::AlignVCenter);
    setAccessibleName(tr("Properties"));
    connect(&m_device, &CameraDevice::propertiesRead, m_model, &PropertyModel::show);
    connect(m_model, &PropertyModel::edited, this,
            [this](const QByteArray& key, const zrn::Value& v) { m_device.writeProperty(key, v); });
}

PropertyTable::~PropertyTable()
{
    m_device.watchProperties(false);
}

void PropertyTable::showEvent(QShowEvent* event)
{
    QTableView::showEvent(event);
    m_device.watchProperties(true);
}

void PropertyTable::hideEvent(QHideEvent* event)
{
    QTableView::hideEvent(event);
    m_device.watchProperties(false);
}

} // namespace zrnview
