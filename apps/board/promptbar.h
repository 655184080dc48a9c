// SPDX-License-Identifier: MIT
#pragma once

#include <QPointer>
#include <QWidget>

#include <functional>

class QCompleter;
class QLabel;
class QLineEdit;
class QPushButton;

/// Asks for one line of text at the foot of the window, in place of a dialog: Enter gives the
/// answer, Escape takes the question back, and the focus returns to where it was.
class PromptBar : public QWidget
{
    Q_OBJECT

public:
    using Answer = std::function<void(const QString& text)>;

    explicit PromptBar(QWidget* parent = nullptr);

    /// Shows the question with `text` to begin with. The answer is neither empty nor padded. With
    /// `isFolder` names of folders are completed.
    void ask(const QString& question, const QString& text, bool isFolder, const Answer& answer);
    void dismiss();

protected:
    void keyPressEvent(QKeyEvent* event) override;

private:
    void accept();

    QLabel* question;
    QLineEdit* edit;
    QPushButton* browse;
    QCompleter* folders;
    Answer answered;
    QPointer<QWidget> focusedBefore;
};
