// Saving the log view to a file and loading a text file into it.
#include "app/mainwindow.h"
#include "ui_mainwindow.h"

#include <QDateTime>
#include <QFile>
#include <QFileDialog>
#include <QFileInfo>
#include <QMessageBox>
#include <QTextStream>

void MainWindow::saveTextBrowserToFile()
{
    const QString name = QStringLiteral("Log_%1.txt").arg(QDateTime::currentDateTime().toString("yyyyMMdd_HHmmss"));
    QString fileName = QFileDialog::getSaveFileName(this, tr("Save Log File"), logPath + "/" + name,
                                                    tr("Text File (*.txt);;HTML File (*.html);;All Files (*)"));
    if (fileName.isEmpty())
        return;
    if (!fileName.endsWith(".txt", Qt::CaseInsensitive) && !fileName.endsWith(".html", Qt::CaseInsensitive))
        fileName += ".html";

    QFile file(fileName);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Text)) {
        QMessageBox::warning(this, tr("Error"), tr("Cannot open file: %1").arg(file.errorString()), QMessageBox::Ok);
        return;
    }
    QTextStream out(&file);
    if (fileName.endsWith(".html", Qt::CaseInsensitive))
        out << ui->textBrowserParsed->toHtml();
    else
        out << ui->textBrowserParsed->toPlainText();
    logPath = QFileInfo(file).absolutePath();
}

void MainWindow::loadFileToTextBrowser()
{
    const QString fileName = QFileDialog::getOpenFileName(this, "Open File", QString(),
                                                          "Text Files (*.txt);;All Files (*)");
    if (fileName.isEmpty())
        return;
    QFile file(fileName);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
        QMessageBox::warning(this, "File Error", "Cannot open file: " + file.errorString(), QMessageBox::Ok);
        return;
    }
    QTextStream in(&file);
    ui->textBrowserParsed->setPlainText(in.readAll());
}
