#pragma once

#include "zrnview/widgets/measure_view.h"

#include <QAction>
#include <QBoxLayout>
#include <QLabel>
#include <QPoint>
#include <QTimer>
#include <QWidget>

#include <memory>
#include <optional>

class QActionGroup;
class QMenu;
class QToolBar;

namespace zrnview
{

enum class ViewMode { A, B, SideBySide, Difference, Blink };

/// The pictures of one source in two linked views, with the tools to look at them.
class PaneArea : public QWidget
{
    Q_OBJECT

public:
    explicit PaneArea(QWidget* parent = nullptr);

    void show(const std::shared_ptr<const Display>& display);
    void setPlaceholder(const QString& text);

    ViewMode mode() const { return m_mode; }
    void setMode(ViewMode mode);
    void setMarkClipped(bool mark);
    bool marksClipped() const { return m_markAction->isChecked(); }
    /// Factor of the difference that is wanted at present; 0 when it is not shown.
    int amplification() const;
    /// Colours of the images, as the camera's sensors have them.
    void setPattern(BayerPattern pattern);
    BayerPattern pattern() const { return m_pattern; }
    /// Whether there is a camera whose colour gains can be set. @param last those of the last white
    /// balance are known
    void offerBalance(bool last);
    void setTool(Tool tool);
    Tool tool() const { return m_tool; }
    const Selection& selection() const { return m_selection; }
    void setSelection(const Selection& selection);
    void setCrosshair(bool shown);
    MeasureView& measures() { return *m_measures; }
    QAction& balanceAction() { return *m_balanceAction; }
    QAction& lastBalanceAction() { return *m_lastBalanceAction; }
    QMenu& colourMenu() { return *m_colourMenu; }
    QMenu& measureMenu() { return *m_measureMenu; }
    void setAmplification(int factor);
    ImageView& view(int index) { return *(index == 0 ? m_left : m_right); }
    /// The scale of the images, as the tools show it.
    QString zoomText() const { return m_zoom->text(); }
    /// Whether B stands below A, because both are shown larger so.
    bool isStacked() const { return m_views->direction() == QBoxLayout::TopToBottom; }

signals:
    void amplificationChanged(int factor);
    void activated();
    /// Mode, amplification or marks have changed.
    void lookChanged();
    /// The user chose it.
    void patternChosen(zrnview::BayerPattern pattern);
    void balanceRequested();
    void lastBalanceRequested();

protected:
    void changeEvent(QEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    void buildTools();
    void buildColour();
    void buildMeasures();
    QAction* addMenu(const QString& tip, QMenu& menu);
    void colourExtension();
    void chooseDirection();
    void connectView(ImageView& view, ImageView& other);
    void arrange();
    void showZoom();
    void showPixel();

    QToolBar* m_tools;
    QActionGroup* m_modeActions;
    QAction* m_markAction;
    QAction* m_amplifyAction;
    QMenu* m_colourMenu;
    QAction* m_colourAction;
    QActionGroup* m_patternActions;
    QAction* m_balanceAction;
    QAction* m_lastBalanceAction;
    QMenu* m_measureMenu;
    QActionGroup* m_toolActions;
    QAction* m_crosshairAction;
    QLabel* m_zoom;
    QBoxLayout* m_views;
    ImageView* m_left;
    ImageView* m_right;
    MeasureView* m_measures;
    QLabel* m_pixel; // over the images
    QTimer m_blink;
    bool m_blinkShowsB = false;
    ViewMode m_mode = ViewMode::SideBySide;
    int m_amplification = 4;
    BayerPattern m_pattern = BayerPattern::None;
    Tool m_tool = Tool::Pan;
    Selection m_selection;
    std::optional<QPoint> m_hovered;
    std::shared_ptr<const Display> m_display;
};

} // namespace zrnview
