// Frames on their way to files, beside the work: each job is a run of the command line, so that it ends as that does.
#pragma once

#include <QProcess>
#include <QStringList>
#include <QWidget>

#include <vector>

class QLineEdit;
class QPushButton;
class QVBoxLayout;
class QLabel;
class QProgressBar;

namespace desk {

// One run of `velloran render`.
class OutputJob : public QWidget {
    Q_OBJECT

public:
    // arguments: of the command, without the program.
    OutputJob(const QString& program, const QStringList& arguments, const QString& output, QWidget* parent = nullptr);
    // Waits until the run has cleaned up.
    ~OutputJob() override;
    void start();
    void cancel();
    bool runs() const { return running_; }
    bool ended() const { return ended_; }
    int status() const { return status_; }  // the command's
    QString words() const;

signals:
    void finished();
    void told(int level, const QString& text);

private:
    void read_events();
    void end(int code, QProcess::ExitStatus how);

    QProcess process_;
    QString program_, output_;
    QStringList arguments_;
    QByteArray pending_;
    QLabel* name_;
    QLabel* state_;
    QProgressBar* bar_;
    QPushButton* cancel_;
    bool running_ = false, ended_ = false, cancelled_ = false;
    int status_ = -1;
    QString last_error_;
};

class OutputDock : public QWidget {
    Q_OBJECT

public:
    explicit OutputDock(QWidget* parent = nullptr);
    void set_frames(const QString& frames);
    void add(const QStringList& arguments, const QString& output);
    bool busy() const;
    void cancel_all();

signals:
    // The window knows the rest of the command.
    void render_asked(const QString& output, const QString& frames);
    void copy_asked(const QString& output, const QString& frames);
    void told(int level, const QString& text);

private:
    void start_next();

    QLineEdit* output_;
    QLineEdit* frames_;
    QVBoxLayout* list_;
    std::vector<OutputJob*> jobs_;
    bool frames_typed_ = false;
};

}  // namespace desk
