// The application's resources, found the way a bundle finds them: by name and type inside one
// resource folder, whether the program runs from the build tree or from an installed tree.
#pragma once

#include <QString>

class Bundle {
  public:
    // The bundle of the running program (see locateResourcePath).
    static const Bundle& mainBundle();

    // Gives the application object the program's name, its version (the project's, from the
    // build) and its organisation's domain, which the ad client reports as the bundle version
    // and the reverse-DNS bundle identifier. Call first in main().
    static void setUpApplicationIdentity();

    explicit Bundle(QString resourcePath);
    virtual ~Bundle() = default;

    QString resourcePath() const { return resourcePath_; }
    // The path of "name.type" in the resource folder (of "name" alone when the type is empty),
    // or a null string when there is no such file.
    virtual QString pathForResource(const QString& name, const QString& type) const;

    // The first of these that exists: $BRINDLE_SOUNDS_RESOURCES; "Resources" beside the
    // executable (the build tree); "../share/brindle-sounds" from the executable's folder (an
    // installed tree). Without any, the build tree's place, where nothing will be found.
    static QString locateResourcePath(const QString& executableDir);

  private:
    QString resourcePath_;
};
