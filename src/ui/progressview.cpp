#include "ui/progressview.h"

#include "ui/toolwindow.h"

#include <QCoreApplication>
#include <QLabel>
#include <QProgressBar>

namespace tabulon {

ProgressView::ProgressView(QProgressBar *bar, QLabel *status, StatusFormat format)
    : m_bar(bar), m_status(status), m_format(std::move(format))
{
}

void ProgressView::begin(int total)
{
    m_total = total;
    m_index = 0;
    if (m_bar) {
        m_bar->setRange(0, std::max(total, 1));
        m_bar->setValue(0);
    }
}

void ProgressView::step(const QString &name)
{
    ++m_index;
    if (m_bar)
        m_bar->setValue(std::min(m_index, m_bar->maximum()));
    if (m_status)
        m_status->setText(m_format ? m_format(name, m_index, m_total) : name);
    // The window stays live: repaints, a Stop click, a close. Whatever those did is seen by
    // the loop through stopRequested().
    QCoreApplication::processEvents();
}

void ProgressView::end()
{
    if (m_bar)
        m_bar->setValue(m_bar->maximum());
}

bool ProgressView::stopRequested() const
{
    return m_busy && m_busy->stopRequested();
}

} // namespace tabulon
