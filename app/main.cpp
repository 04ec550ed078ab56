#include "app/mainwindow.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QDebug>
#include <QIcon>
#include <QStringList>

#include <cstdio>

namespace {

constexpr int goOn = -1;
constexpr int exitBadOption = 2;

// Answers --help, --version and bad arguments with an exit code, or goOn.
// It runs before QApplication, which needs a display, so it knows Qt's own
// options (QApplication takes them later) to refuse only unknown ones.
int answerCommandLine(int argc, char **argv)
{
    QStringList args;
    for (int i = 0; i < argc; ++i)
        args.append(QString::fromLocal8Bit(argv[i]));
    QCommandLineParser parser;
    parser.setSingleDashWordOptionMode(QCommandLineParser::ParseAsLongOptions); // as Qt's -platform NAME
    parser.setApplicationDescription(QStringLiteral("Bus analyser for vending machines."));
    parser.addHelpOption();
    parser.addVersionOption();
    const char *qtValueOptions[] = {"platform", "platformpluginpath", "platformtheme", "plugin", "qwindowgeometry",
                                    "qwindowicon", "qwindowtitle", "session", "display", "geometry", "name", "title",
                                    "visual", "style", "stylesheet", "qmljsdebugger"};
    const char *qtFlags[] = {"reverse", "widgetcount", "nograb", "dograb", "sync"};
    for (const char *name : qtValueOptions) {
        QCommandLineOption option(QString::fromLatin1(name), QString(), QStringLiteral("value"));
        option.setFlags(QCommandLineOption::HiddenFromHelp);
        parser.addOption(option);
    }
    for (const char *name : qtFlags) {
        QCommandLineOption option(QString::fromLatin1(name));
        option.setFlags(QCommandLineOption::HiddenFromHelp);
        parser.addOption(option);
    }

    if (!parser.parse(args)) {
        std::fprintf(stderr, "vendscope: %s\n", qPrintable(parser.errorText()));
        return exitBadOption;
    }
    if (parser.isSet(QStringLiteral("help")) || parser.isSet(QStringLiteral("help-all"))) {
        // Without an application object Qt cannot name the program itself.
        std::fputs(qPrintable(parser.helpText().replace(QStringLiteral("<executable_name>"), QStringLiteral("vendscope"))),
                   stdout);
        return 0;
    }
    if (parser.isSet(QStringLiteral("version"))) {
        std::printf("vendscope %s\n", VENDSCOPE_VERSION);
        return 0;
    }
    if (!parser.positionalArguments().isEmpty()) {
        std::fprintf(stderr, "vendscope: unexpected argument \"%s\"\n", qPrintable(parser.positionalArguments().constFirst()));
        return exitBadOption;
    }
    return goOn;
}

} // namespace

int qMain(int argc, char **argv)
{
    // The per-user folders are named after the program, whatever a copy of it is called.
    QCoreApplication::setApplicationName(QStringLiteral("vendscope"));
    QCoreApplication::setApplicationVersion(QStringLiteral(VENDSCOPE_VERSION));
    if (const int code = answerCommandLine(argc, argv); code != goOn)
        return code;

    qDebug() << "main start";
    int result = 0;
    {
        QApplication app(argc, argv);
        qDebug() << "app created";
        QGuiApplication::setDesktopFileName(QStringLiteral("vendscope"));
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
