#include "zrnview/widgets/pane_area.h"

#include "zrnview/widgets/image_view.h"
#include "zrnview/widgets/theme.h"

#include <QActionGroup>
#include <QEvent>
#include <QLabel>
#include <QMenu>
#include <QPainter>
#include <QToolBar>
#include <QToolButton>
#include <QVBoxLayout>

#include <algorithm>
#include <array>

namespace zrnview
{
namespace
{

using namespace std::chrono_literals;

constexpr auto blinkPeriod = 500ms;
/// Gain in size that makes up for leaving the usual order, side by side.
constexpr double worthTurning = 1.1;
/// On the dark boxes over the images, in both themes.
constexpr QColor letterColourA(0x5a, 0xb4, 0xff);
constexpr QColor letterColourB(0xff, 0xb0, 0x4d);
constexpr std::array amplifications = {1, 2, 4, 8, 16};

struct ModeRow {
    ViewMode mode;
    const char* text;
    const char* tip;
};

constexpr std::array modes = {
    ModeRow{ViewMode::A, "A", "Image A alone (Ctrl+1)"},
    ModeRow{ViewMode::B, "B", "Image B alone (Ctrl+2)"},
    ModeRow{ViewMode::SideBySide, "A | B",
            "Both images, beside or above each other as they are larger (Ctrl+3)"},
    ModeRow{ViewMode::Difference, "A − B", "Distance of each pixel of A and B (Ctrl+4)"},
    ModeRow{ViewMode::Blink, "Blink", "A and B in turn in the same place (Ctrl+5)"},
};

double fittedScale(QSizeF image, QSizeF view)
{
    return std::min(view.width() / image.width(), view.height() / image.height());
}

QString valueText(const QImage& image, QPoint pixel)
{
    if (!image.rect().contains(pixel)) {
        return QStringLiteral("–");
    }
    return QString::number(image.constScanLine(pixel.y())[pixel.x()]);
}

} // namespace

PaneArea::PaneArea(QWidget* parent)
    : QWidget(parent)
    , m_tools(new QToolBar(this))
    , m_modeActions(new QActionGroup(this))
    , m_colourMenu(new QMenu(this))
    , m_patternActions(new QActionGroup(this))
    , m_measureMenu(new QMenu(this))
    , m_toolActions(new QActionGroup(this))
    , m_zoom(new QLabel(this))
    , m_views(new QBoxLayout(QBoxLayout::LeftToRight))
    , m_left(new ImageView(this))
    , m_right(new ImageView(this))
    , m_measures(new MeasureView(this))
    , m_pixel(new QLabel(this))
{
    buildTools();
    colourExtension();
    m_views->setSpacing(2);
    m_views->addWidget(m_left, 1);
    m_views->addWidget(m_right, 1);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(m_tools);
    layout->addLayout(m_views, 1);
    layout->addWidget(m_measures);

    connectView(*m_left, *m_right);
    connectView(*m_right, *m_left);
    connect(m_left, &ImageView::scaleChanged, this, &PaneArea::showZoom);
    m_blink.setInterval(blinkPeriod);
    connect(&m_blink, &QTimer::timeout, this, [this] {
        m_blinkShowsB = !m_blinkShowsB;
        arrange();
    });
    arrange();
    showPixel();
}

void PaneArea::buildTools()
{
    m_tools->setToolButtonStyle(Qt::ToolButtonTextOnly);
    for (const ModeRow& row : modes) {
        QAction* action = m_tools->addAction(QString::fromUtf8(row.text));
        action->setToolTip(tr(row.tip));
        action->setCheckable(true);
        action->setChecked(row.mode == m_mode);
        action->setData(static_cast<int>(row.mode));
        m_modeActions->addAction(action);
        connect(action, &QAction::triggered, this, [this, row] { setMode(row.mode); });
    }

    auto* amplify = new QMenu(this);
    for (const int factor : amplifications) {
        amplify->addAction(QStringLiteral("× %1").arg(factor), this,
                           [this, factor] { setAmplification(factor); });
    }
    m_amplifyAction = addMenu(tr("How much the difference is amplified"), *amplify);

    m_tools->addSeparator();
    QAction* fit = m_tools->addAction(tr("Fit"), this, [this] { m_left->fit(); });
    fit->setToolTip(tr("Show the whole image (F)"));
    QAction* one = m_tools->addAction(tr("1:1"), this, [this] { m_left->zoomToOne(); });
    one->setToolTip(tr("One screen pixel for each image pixel (1)"));
    m_zoom->setMinimumWidth(m_zoom->fontMetrics().horizontalAdvance(tr("6400 %")));
    m_zoom->setAlignment(Qt::AlignCenter);
    m_tools->addWidget(m_zoom);
    m_tools->addSeparator();
    m_markAction = m_tools->addAction(tr("Clipping"));
    m_markAction->setToolTip(tr("Mark pixels at 0 in blue and at 255 in red (Ctrl+M)"));
    m_markAction->setCheckable(true);
    connect(m_markAction, &QAction::toggled, this, &PaneArea::setMarkClipped);
    buildColour();
    buildMeasures();
    for (QToolButton* button : m_tools->findChildren<QToolButton*>()) {
        button->setFocusPolicy(Qt::TabFocus); // a tool bar takes its buttons out of the Tab order
    }

    m_pixel->setAttribute(Qt::WA_TransparentForMouseEvents);
    m_pixel->setAutoFillBackground(true);
    m_pixel->setPalette(QPalette(QColor(0xe4, 0xe7, 0xeb), QColor(0x12, 0x13, 0x15), Qt::white,
                                 Qt::black, Qt::gray, QColor(0xe4, 0xe7, 0xeb),
                                 QColor(0x12, 0x13, 0x15)));
    m_pixel->setMargin(fontMetrics().averageCharWidth() / 2);
}

QAction* PaneArea::addMenu(const QString& tip, QMenu& menu)
{
    QAction* action = m_tools->addAction(QString());
    action->setToolTip(tip);
    action->setMenu(&menu);
    qobject_cast<QToolButton*>(m_tools->widgetForAction(action))
        ->setPopupMode(QToolButton::InstantPopup);
    return action;
}

void PaneArea::buildColour()
{
    for (const BayerPattern pattern : {BayerPattern::None, BayerPattern::Rggb, BayerPattern::Grbg,
                                       BayerPattern::Gbrg, BayerPattern::Bggr}) {
        QAction* action = m_patternActions->addAction(
            pattern == BayerPattern::None ? tr("Grey") : nameOf(pattern));
        action->setCheckable(true);
        action->setData(static_cast<int>(pattern));
        connect(action, &QAction::triggered, this, [this, pattern] {
            setPattern(pattern);
            emit patternChosen(pattern);
        });
    }
    m_colourMenu->addActions(m_patternActions->actions());
    m_colourMenu->addSeparator();
    m_balanceAction =
        m_colourMenu->addAction(tr("White balance"), this, [this] { emit balanceRequested(); });
    m_balanceAction->setToolTip(
        tr("Sets the camera's colour gains so that the picture, or the chosen rectangle, is grey"));
    m_lastBalanceAction = m_colourMenu->addAction(tr("Last white balance"), this,
                                                  [this] { emit lastBalanceRequested(); });
    m_lastBalanceAction->setToolTip(
        tr("Sets the camera's colour gains as the last white balance did"));
    m_colourMenu->setToolTipsVisible(true);
    m_balanceAction->setVisible(false);
    m_lastBalanceAction->setVisible(false);
    m_colourAction =
        addMenu(tr("Colours: the pattern of the camera's colour filters"), *m_colourMenu);
    setPattern(BayerPattern::None);
}

void PaneArea::buildMeasures()
{
    const auto addTool = [this](const QString& text, Tool tool) {
        QAction* action = m_toolActions->addAction(text);
        action->setCheckable(true);
        action->setData(static_cast<int>(tool));
        connect(action, &QAction::triggered, this, [this, tool] { setTool(tool); });
    };
    addTool(tr("Nothing"), Tool::Pan);
    addTool(tr("Profile of a line"), Tool::Line);
    addTool(tr("Statistics and focus of a rectangle"), Tool::Rectangle);
    m_measureMenu->addActions(m_toolActions->actions());
    m_measureMenu->addSeparator();
    m_crosshairAction = m_measureMenu->addAction(tr("Crosshair"));
    m_crosshairAction->setCheckable(true);
    connect(m_crosshairAction, &QAction::toggled, this, &PaneArea::setCrosshair);
    addMenu(tr("Measures a line or a rectangle, which is drawn with the mouse"), *m_measureMenu)
        ->setText(tr("Measure"));
    setTool(Tool::Pan);
}

void PaneArea::colourExtension()
{
    // The style's sign for tools that do not fit is black on every background.
    auto* button = m_tools->findChild<QToolButton*>(QStringLiteral("qt_toolbar_ext_button"));
    const int side = fontMetrics().height();
    QPixmap sign(QSize(side, side) * devicePixelRatioF());
    sign.setDevicePixelRatio(devicePixelRatioF());
    sign.fill(Qt::transparent);
    QPainter painter(&sign);
    painter.setFont(font());
    painter.setPen(palette().color(QPalette::WindowText));
    painter.drawText(QRect(0, 0, side, side), Qt::AlignCenter, QStringLiteral("»"));
    painter.end();
    button->setIcon(sign);
}

void PaneArea::changeEvent(QEvent* event)
{
    QWidget::changeEvent(event);
    if (event->type() == QEvent::PaletteChange) {
        colourExtension();
    }
}

void PaneArea::connectView(ImageView& view, ImageView& other)
{
    connect(&view, &ImageView::transformChanged, this,
            [&other](const ViewTransform& transform) { other.setTransform(transform); });
    connect(&view, &ImageView::hovered, this, [this](const std::optional<QPoint>& pixel) {
        m_hovered = pixel;
        m_left->setCross(pixel);
        m_right->setCross(pixel);
        showPixel();
    });
    connect(&view, &ImageView::activated, this, &PaneArea::activated);
    connect(&view, &ImageView::selected, this, &PaneArea::setSelection);
}

void PaneArea::show(const std::shared_ptr<const Display>& display)
{
    m_display = display;
    if (m_tool != Tool::Pan && m_selection == Selection()) {
        setTool(m_tool); // which has something to measure now
    }
    arrange();
    m_measures->show(m_display);
    chooseDirection();
    showPixel();
}

void PaneArea::setPlaceholder(const QString& text)
{
    m_left->setPlaceholder(text);
    m_right->setPlaceholder(text);
}

void PaneArea::setMode(ViewMode mode)
{
    m_mode = mode;
    m_blinkShowsB = false;
    mode == ViewMode::Blink ? m_blink.start() : m_blink.stop();
    for (QAction* action : m_modeActions->actions()) {
        action->setChecked(action->data().toInt() == static_cast<int>(mode));
    }
    emit amplificationChanged(amplification());
    arrange();
    emit lookChanged();
}

void PaneArea::setMarkClipped(bool mark)
{
    m_markAction->setChecked(mark);
    m_left->setMarkClipped(mark);
    m_right->setMarkClipped(mark);
    emit lookChanged();
}

void PaneArea::setPattern(BayerPattern pattern)
{
    m_pattern = pattern;
    for (QAction* action : m_patternActions->actions()) {
        action->setChecked(action->data().toInt() == static_cast<int>(pattern));
    }
    m_colourAction->setText(pattern == BayerPattern::None ? tr("Grey") : nameOf(pattern));
    m_balanceAction->setEnabled(pattern != BayerPattern::None);
    m_measures->setPattern(pattern);
    arrange();
}

void PaneArea::offerBalance(bool last)
{
    m_balanceAction->setVisible(true);
    m_lastBalanceAction->setVisible(last);
}

void PaneArea::setTool(Tool tool)
{
    m_tool = tool;
    for (QAction* action : m_toolActions->actions()) {
        action->setChecked(action->data().toInt() == static_cast<int>(tool));
    }
    for (ImageView* view : {m_left, m_right}) {
        view->setTool(tool);
    }
    m_measures->setTool(tool);
    if (m_display && tool != Tool::Pan) {
        const QSize image = m_display->any().size();
        setSelection(tool == Tool::Line ? middleRowOf(image) : middleOf(image));
    }
}

void PaneArea::setSelection(const Selection& selection)
{
    m_selection = selection;
    m_left->setSelection(selection);
    m_right->setSelection(selection);
    m_measures->setSelection(selection);
}

void PaneArea::setCrosshair(bool shown)
{
    m_crosshairAction->setChecked(shown);
    m_left->setCrosshair(shown);
    m_right->setCrosshair(shown);
}

int PaneArea::amplification() const
{
    return m_mode == ViewMode::Difference ? m_amplification : 0;
}

void PaneArea::setAmplification(int factor)
{
    m_amplification = factor;
    emit amplificationChanged(amplification());
    arrange();
    emit lookChanged();
}

void PaneArea::arrange()
{
    const Colours colours = coloursFor(palette());
    const QImage a = m_display ? m_display->a : QImage();
    const QImage b = m_display ? m_display->b : QImage();

    const bool onlyOne = m_display && (a.isNull() || b.isNull());
    m_right->setVisible(m_mode == ViewMode::SideBySide && !onlyOne);
    m_amplifyAction->setVisible(m_mode == ViewMode::Difference);
    m_amplifyAction->setText(QStringLiteral("× %1").arg(m_amplification));

    const bool leftIsB = m_mode == ViewMode::B || (m_mode == ViewMode::Blink && m_blinkShowsB) ||
                         (m_mode == ViewMode::SideBySide && onlyOne && !b.isNull());
    m_left->setPattern(m_mode == ViewMode::Difference ? BayerPattern::None : m_pattern);
    m_right->setPattern(m_pattern);
    if (m_mode == ViewMode::Difference) {
        m_left->setCaption(QStringLiteral("|A − B| × %1").arg(m_amplification), colours.difference);
        m_left->show(m_display ? m_display->difference : QImage());
    } else {
        m_left->setCaption(leftIsB ? QStringLiteral("B") : QStringLiteral("A"),
                           leftIsB ? letterColourB : letterColourA);
        m_left->show(leftIsB ? b : a);
    }
    m_right->setCaption(QStringLiteral("B"), letterColourB);
    m_right->show(b);
}

void PaneArea::resizeEvent(QResizeEvent* event)
{
    QWidget::resizeEvent(event);
    chooseDirection();
}

void PaneArea::chooseDirection()
{
    if (!m_display || m_display->any().isNull()) {
        return;
    }
    const QSizeF image = m_display->any().size();
    const QSizeF area = m_views->geometry().size();
    const double beside = fittedScale(image, {area.width() / 2, area.height()});
    const double above = fittedScale(image, {area.width(), area.height() / 2});
    m_views->setDirection(above > beside * worthTurning ? QBoxLayout::TopToBottom
                                                        : QBoxLayout::LeftToRight);
}

void PaneArea::showZoom()
{
    m_zoom->setText(QStringLiteral("%1 %").arg(m_left->transform().scale() * 100, 0, 'f', 0));
}

void PaneArea::showPixel()
{
    m_pixel->setVisible(m_hovered && m_display);
    if (m_pixel->isHidden()) {
        return;
    }
    m_pixel->setText(QStringLiteral("x&nbsp;<b>%1</b>&nbsp; y&nbsp;<b>%2</b>&nbsp;&nbsp; "
                                    "<font color='%3'>A&nbsp;<b>%4</b></font>&nbsp; "
                                    "<font color='%5'>B&nbsp;<b>%6</b></font>")
                         .arg(m_hovered->x())
                         .arg(m_hovered->y())
                         .arg(letterColourA.name(), valueText(m_display->a, *m_hovered),
                              letterColourB.name(), valueText(m_display->b, *m_hovered)));
    m_pixel->adjustSize();
    m_pixel->move(m_views->geometry().topRight() - QPoint(m_pixel->width(), 0));
    m_pixel->raise();
}

} // namespace zrnview
