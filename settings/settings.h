#ifndef SETTINGS_H
#define SETTINGS_H

#include <QDialog>

class QCheckBox;
class QComboBox;
class QPushButton;
class QSerialPort;
class QSpinBox;
class Ui_DialogSettings;

class Settings : public QDialog
{
    Q_OBJECT
public:
    explicit Settings(QWidget *parent = nullptr);
    ~Settings() override;

    // Makes a device path the user typed (or a stored one) the current port,
    // for ports the system does not list, such as pseudo-terminals.
    int addPortPath(const QString &path);

    Ui_DialogSettings *ui;
    QPushButton *pushButtonRefresh;
    QComboBox *comboBoxPort;
    QComboBox *comboBoxInterpret;
    QComboBox *comboBoxBaud;
    QCheckBox *checkBoxUpdate;
    // "Lines kept in view": older lines leave the view (the capture keeps them).
    QSpinBox *spinBoxViewLines;
    QSerialPort *serialPort;

public slots:
    void populatePorts();

private:
    void updateBaudList(int interpretIndex);
    void portTyped();
};

#endif // SETTINGS_H
