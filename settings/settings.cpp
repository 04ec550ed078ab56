#include "settings/settings.h"
#include "ui_settings.h"

#include <QCheckBox>
#include <QComboBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSerialPort>
#include <QSerialPortInfo>
#include <QSpinBox>
#include <QVBoxLayout>

static const char *const interpretNames[] = {"MDB", "VSI", "VTS", "232", "ISS", "Debug", "485", "CAN", "TTL"};
static const char *const serialRates[] = {"4800", "9600", "19200", "38400", "57600", "115200"};
static const char *const canRates[] = {"125 kbps", "250 kbps", "500 kbps", "1 Mbps"};

template <size_t N>
static void addItems(QComboBox *box, const char *const (&items)[N])
{
    for (const char *item : items)
        box->addItem(QString::fromLatin1(item));
}

Settings::Settings(QWidget *parent)
    : QDialog(parent), ui(new Ui_DialogSettings)
{
    serialPort = new QSerialPort(this);
    ui->setupUi(this);

    comboBoxInterpret = new QComboBox(ui->tabConn);
    comboBoxBaud = new QComboBox(ui->tabConn);
    comboBoxPort = new QComboBox(ui->tabConn);
    pushButtonRefresh = new QPushButton(QIcon(QStringLiteral(":/icon/refresh.png")), tr("Refresh"), ui->tabConn);
    checkBoxUpdate = new QCheckBox(tr("Update"), ui->tabConn);
    checkBoxUpdate->setChecked(true);
    spinBoxViewLines = new QSpinBox(ui->tabConn);
    spinBoxViewLines->setRange(1000, 500000); // no unlimited: Qt's layout freezes on huge documents
    spinBoxViewLines->setSingleStep(1000);
    spinBoxViewLines->setGroupSeparatorShown(true);
    spinBoxViewLines->setValue(200000);

    // The port list also takes a typed device path (a pseudo-terminal, say).
    comboBoxPort->setEditable(true);
    comboBoxPort->setInsertPolicy(QComboBox::NoInsert);

    auto *column = new QVBoxLayout(ui->tabConn);
    auto *modeRow = new QHBoxLayout;
    modeRow->addWidget(comboBoxInterpret);
    modeRow->addWidget(comboBoxBaud);
    auto *portRow = new QHBoxLayout;
    portRow->addWidget(comboBoxPort);
    portRow->addWidget(pushButtonRefresh);
    column->addLayout(modeRow);
    column->addLayout(portRow);
    column->addWidget(checkBoxUpdate);
    auto *viewRow = new QHBoxLayout;
    auto *viewLabel = new QLabel(tr("Lines kept in view"), ui->tabConn);
    viewLabel->setBuddy(spinBoxViewLines);
    viewRow->addWidget(viewLabel);
    viewRow->addWidget(spinBoxViewLines);
    viewRow->addStretch();
    column->addLayout(viewRow);
    column->addStretch();

    const int ownerWidth = parent ? parent->width() : width();
    comboBoxInterpret->setMinimumSize(ownerWidth / 4, 0);
    comboBoxBaud->setMinimumSize(ownerWidth / 4, 0);
    comboBoxPort->setMinimumSize(ownerWidth / 2, 0);

    addItems(comboBoxInterpret, interpretNames);
    addItems(comboBoxBaud, serialRates);

    populatePorts();
    serialPort->setPortName(comboBoxPort->currentData().toString());
    serialPort->setBaudRate(QSerialPort::Baud115200, QSerialPort::AllDirections);
    serialPort->setDataBits(QSerialPort::Data8);
    serialPort->setParity(QSerialPort::NoParity);
    serialPort->setStopBits(QSerialPort::OneStop);
    serialPort->setFlowControl(QSerialPort::NoFlowControl);

    QObject::connect(pushButtonRefresh, &QPushButton::clicked, this, &Settings::populatePorts);
    QObject::connect(ui->pushButtonAccept, &QPushButton::clicked, this, &QDialog::accept);
    QObject::connect(comboBoxInterpret, &QComboBox::currentIndexChanged, this, &Settings::updateBaudList);
    QObject::connect(comboBoxPort->lineEdit(), &QLineEdit::returnPressed, this, &Settings::portTyped);

    setWindowTitle(QStringLiteral("Settings"));
    setWindowIcon(QIcon(QStringLiteral(":/icon/settings.png")));
}

Settings::~Settings()
{
    delete ui;
}

void Settings::populatePorts()
{
    comboBoxPort->clear();
    const auto ports = QSerialPortInfo::availablePorts();
    for (const QSerialPortInfo &info : ports)
        comboBoxPort->addItem(info.portName() + QLatin1Char(' ') + info.description(), info.portName());
    if (ports.isEmpty())
        comboBoxPort->addItem(QStringLiteral("No ports available"));
}

void Settings::updateBaudList(int interpretIndex)
{
    comboBoxBaud->clear();
    switch (interpretIndex) {
    case 3: // 232
    case 6: // 485
    case 8: // TTL
        addItems(comboBoxBaud, serialRates);
        break;
    case 7: // CAN
        addItems(comboBoxBaud, canRates);
        break;
    default:
        break;
    }
}

int Settings::addPortPath(const QString &path)
{
    const QString trimmed = path.trimmed();
    if (trimmed.isEmpty())
        return comboBoxPort->currentIndex();
    int index = comboBoxPort->findText(trimmed, Qt::MatchExactly | Qt::MatchCaseSensitive);
    if (index < 0) {
        // A typed path replaces the "No ports available" placeholder.
        if (comboBoxPort->count() == 1 && !comboBoxPort->itemData(0).isValid())
            comboBoxPort->clear();
        comboBoxPort->addItem(trimmed, trimmed);
        index = comboBoxPort->count() - 1;
    }
    comboBoxPort->setCurrentIndex(index);
    return index;
}

void Settings::portTyped()
{
    addPortPath(comboBoxPort->lineEdit()->text());
}
