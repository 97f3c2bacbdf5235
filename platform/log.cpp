#include "log.h"

#include "error.h"

#include <QDateTime>
#include <QElapsedTimer>
#include <QRegularExpression>
#include <QUrl>

#include <cstdio>
#include <cstdlib>

Q_LOGGING_CATEGORY(lcSorvel, "sorvel")
Q_LOGGING_CATEGORY(lcSorvelDebug, "sorvel.debug", QtWarningMsg)

namespace platform {

void logLine(const QString& line) {
    qCInfo(lcSorvel).noquote() << line;
}

void logDebug(const QString& line) {
    qCDebug(lcSorvelDebug).noquote() << line;
}

namespace {

// Lines the web engine and Qt's platform plugins write on every ordinary start, in Qt's default
// category where no rule can reach them: detail for the debug log, not for a user's terminal.
bool isChatter(const QString& message) {
    static const QStringList kChatter{
        QString(),  // the engine's blank line after its graphics report
        QStringLiteral("No suitable graphics backend found"),
        QStringLiteral("Sandboxing disabled by user."),
        // The offscreen platform's notes on what a window system would do.
        QStringLiteral("This plugin does not support raise()"),
        QStringLiteral("This plugin does not support setParent!"),
        QStringLiteral("This plugin does not support propagateSizeHints()"),
    };
    return kChatter.contains(message.trimmed());
}

QtMessageHandler& chainedHandler() {
    static QtMessageHandler handler = nullptr;
    return handler;
}

void quietHandler(QtMsgType type, const QMessageLogContext& context, const QString& message) {
    if (type != QtFatalMsg && qstrcmp(context.category, "default") == 0 && isChatter(message)) {
        return;
    }
    if (QtMessageHandler next = chainedHandler()) {
        next(type, context, message);
        return;
    }
    // Qt's own handler, which the installation replaced.
    std::fprintf(stderr, "%s\n", qPrintable(qFormatLogMessage(type, context, message)));
    if (type == QtFatalMsg) {
        std::abort();
    }
}

}  // namespace

void setDebugLogging(bool enabled) {
    // The web engine reports its graphics set-up, some twenty lines, on every start: detail for
    // the debug log, not for a user's terminal. QT_LOGGING_RULES still overrides this.
    QLoggingCategory::setFilterRules(enabled ? QString()
                                             : QStringLiteral("qt.webenginecontext.info=false"));
    static bool quiet = false;
    if (!enabled && !quiet) {
        chainedHandler() = qInstallMessageHandler(quietHandler);
        quiet = true;
    } else if (enabled && quiet) {
        qInstallMessageHandler(chainedHandler());
        quiet = false;
    }
    const_cast<QLoggingCategory&>(lcSorvelDebug()).setEnabled(QtDebugMsg, enabled);
    const_cast<QLoggingCategory&>(lcSorvelDebug()).setEnabled(QtInfoMsg, enabled);
}

QString escapeForLog(const QString& text, qsizetype maximumLength) {
    QString out;
    const QString kept = text.left(maximumLength);
    out.reserve(kept.size());
    for (const QChar ch : kept) {
        const char16_t code = ch.unicode();
        if (code == u'\\') {
            out += QLatin1String("\\\\");
        } else if (code < 0x20 || code == 0x7f || (code >= 0x80 && code < 0xa0)) {
            out += QString::asprintf("\\x%02x", unsigned(code));
        } else if (ch.category() == QChar::Other_Format || ch.category() == QChar::Separator_Line ||
                   ch.category() == QChar::Separator_Paragraph) {
            out += QString::asprintf("\\u%04x", unsigned(code));
        } else {
            out += ch;
        }
    }
    if (text.size() > maximumLength) {
        out += QStringLiteral("... (%1 characters in all)").arg(text.size());
    }
    return out;
}

LogRateLimiter::Verdict LogRateLimiter::take() {
    static QElapsedTimer clock;
    if (!clock.isValid()) {
        clock.start();
    }
    const qint64 now = clock.elapsed();
    if (periodStart_ < 0 || now - periodStart_ >= periodMs_) {
        periodStart_ = now;
        taken_ = 0;
    }
    ++taken_;
    if (taken_ <= lines_) {
        return kWrite;
    }
    return taken_ == lines_ + 1 ? kDropFirst : kDrop;
}

namespace {

// A string inside a collection is quoted when it holds anything but letters, digits and "_".
QString quoteIfNeeded(const QString& s) {
    static const QRegularExpression plain(QStringLiteral("^[A-Za-z0-9_.$/]+$"));
    if (plain.match(s).hasMatch()) {
        return s;
    }
    QString escaped = s;
    escaped.replace(QLatin1Char('\\'), QLatin1String("\\\\"));
    escaped.replace(QLatin1Char('"'), QLatin1String("\\\""));
    escaped.replace(QLatin1Char('\n'), QLatin1String("\\n"));
    return QLatin1Char('"') + escaped + QLatin1Char('"');
}

QString describeAt(const QVariant& value, int depth, bool nested) {
    const QString indent(4 * depth, QLatin1Char(' '));
    const QString inner(4 * (depth + 1), QLatin1Char(' '));
    if (!value.isValid() || value.isNull()) {
        return nested ? QStringLiteral("<null>") : QStringLiteral("(null)");
    }
    switch (value.metaType().id()) {
        case QMetaType::QString:
            return nested ? quoteIfNeeded(value.toString()) : value.toString();
        case QMetaType::Bool:
            return value.toBool() ? QStringLiteral("1") : QStringLiteral("0");
        case QMetaType::Double:
        case QMetaType::Float:
            return QString::number(value.toDouble(), 'g', 15);
        case QMetaType::QUrl:
            return value.toUrl().toString(QUrl::FullyEncoded);
        case QMetaType::QDateTime:
            return value.toDateTime().toUTC().toString(QStringLiteral("yyyy-MM-dd HH:mm:ss +0000"));
        case QMetaType::QByteArray:
            return QLatin1Char('<') + QString::fromLatin1(value.toByteArray().toHex()) +
                   QLatin1Char('>');
        case QMetaType::QVariantMap: {
            const QVariantMap map = value.toMap();
            QString out = QStringLiteral("{\n");
            for (auto it = map.begin(); it != map.end(); ++it) {
                out += inner + quoteIfNeeded(it.key()) + QStringLiteral(" = ") +
                       describeAt(it.value(), depth + 1, true) + QStringLiteral(";\n");
            }
            return out + indent + QLatin1Char('}');
        }
        case QMetaType::QVariantList:
        case QMetaType::QStringList: {
            const QVariantList list = value.toList();
            QString out = QStringLiteral("(\n");
            for (int i = 0; i < list.size(); ++i) {
                out += inner + describeAt(list[i], depth + 1, true);
                out += (i + 1 < list.size()) ? QStringLiteral(",\n") : QStringLiteral("\n");
            }
            return out + indent + QLatin1Char(')');
        }
        default:
            break;
    }
    if (value.metaType() == QMetaType::fromType<Error>()) {
        const Error e = value.value<Error>();
        return QStringLiteral("Error Domain=%1 Code=%2 \"%3\"")
            .arg(e.domain())
            .arg(e.code())
            .arg(e.localizedDescription());
    }
    if (value.canConvert<QString>()) {
        return value.toString();
    }
    return QStringLiteral("<%1>").arg(QString::fromLatin1(value.typeName()));
}

}  // namespace

QString describe(const QVariant& value) {
    return describeAt(value, 0, false);
}

}  // namespace platform
