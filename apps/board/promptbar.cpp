// SPDX-License-Identifier: MIT
#include "promptbar.h"

#include <QApplication>
#include <QCompleter>
#include <QFileDialog>
#include <QFileSystemModel>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>

PromptBar::PromptBar(QWidget* parent)
    : QWidget(parent)
    , question(new QLabel)
    , edit(new QLineEdit)
    , browse(new QPushButton(tr("&Browse\u2026")))
    , folders(new QCompleter(this))
{
    setObjectName(QStringLiteral("strip"));
    setAttribute(Qt::WA_StyledBackground);
    edit->setObjectName(QStringLiteral("prompt"));
    question->setBuddy(edit);
    auto* accepted = new QPushButton(tr("OK"));
    accepted->setObjectName(QStringLiteral("primary"));
    auto* cancel = new QPushButton(tr("Cancel"));
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(12, 6, 12, 6);
    layout->addWidget(question);
    layout->addWidget(edit, 1);
    layout->addWidget(browse);
    layout->addWidget(accepted);
    layout->addWidget(cancel);
    hide();

    connect(edit, &QLineEdit::returnPressed, this, &PromptBar::accept);
    connect(accepted, &QPushButton::clicked, this, &PromptBar::accept);
    connect(cancel, &QPushButton::clicked, this, &PromptBar::dismiss);
    connect(browse, &QPushButton::clicked, this, [this] {
        const QString folder =
            QFileDialog::getExistingDirectory(window(), question->text(), edit->text());
        if (!folder.isEmpty())
            edit->setText(folder);
        edit->setFocus();
    });
}

void PromptBar::ask(const QString& text, const QString& start, bool isFolder, const Answer& answer)
{
    if (!isVisible())
        focusedBefore = QApplication::focusWidget();
    answered = answer;
    question->setText(text);
    edit->setText(start);
    browse->setVisible(isFolder);
    if (isFolder && !folders->model()) { // its model reads folders on a thread, so not before
        auto* model = new QFileSystemModel(folders);
        model->setFilter(QDir::Dirs | QDir::NoDotAndDotDot);
        model->setRootPath(QString());
        folders->setModel(model);
    }
    edit->setCompleter(isFolder ? folders : nullptr);
    show();
    edit->selectAll();
    edit->setFocus();
}

void PromptBar::dismiss()
{
    answered = nullptr;
    if (focusedBefore)
        focusedBefore->setFocus();
    hide();
}

void PromptBar::accept()
{
    const QString text = edit->text().trimmed();
    if (text.isEmpty())
        return;
    const Answer answer = answered;
    dismiss();
    if (answer)
        answer(text);
}

void PromptBar::keyPressEvent(QKeyEvent* event)
{
    if (event->key() == Qt::Key_Escape)
        dismiss();
    else
        QWidget::keyPressEvent(event);
}
