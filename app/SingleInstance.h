// One sound board per user and profile: a later start asks the running one to bring its window
// to the front, over a local socket named after the profile's folder, and ends.
#pragma once

#include <QLocalServer>
#include <QObject>

class SingleInstance : public QObject {
    Q_OBJECT
  public:
    // The socket of the current profile: in the user's runtime folder when the desktop gives one.
    static QString socketName();
    // Asks a running instance of this profile to show its window; whether one answered in time.
    // Needs an application object.
    static bool askRunningInstanceToShow(int timeoutMilliseconds = 2000);

    // Takes later starts' requests, each one a showRequested(). A socket no one answers on is
    // a crashed instance's, and is taken over.
    bool listen();

  signals:
    void showRequested();

  private:
    QLocalServer server_;
};
