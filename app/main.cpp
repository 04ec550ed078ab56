#include "app/mainwindow.h"

#include <QApplication>
#include <QDebug>
#include <QIcon>

int qMain(int argc, char **argv)
{
    qDebug() << "main start";
    int result = 0;
    {
        QApplication app(argc, argv);
        qDebug() << "app created";
        QCoreApplication::setApplicationVersion("1.2.2");
        auto *window = new MainWindow;
        qDebug() << "MainWindow constructed";
        window->setWindowIcon(QIcon(":/icon/logo.ico"));
        window->setWindowTitle("Vendscope");
        window->show();
        qDebug() << "MainWindow shown";
        result = QApplication::exec();
        delete window;
    }
    return result;
}

int main(int argc, char **argv)
{
    return qMain(argc, argv);
}
