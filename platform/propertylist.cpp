#include "propertylist.h"

#include "clock.h"

#include <QFile>

#include <plist/plist.h>

#include <cmath>
#include <cstdlib>
#include <limits>
#include <memory>

namespace platform {

namespace {

struct PlistDeleter {
    void operator()(plist_t node) const { plist_free(node); }
};
using PlistPtr = std::unique_ptr<void, PlistDeleter>;

QVariant toVariant(plist_t node, int depth) {
    // Deeply nested input is refused rather than followed down the stack.
    if (node == nullptr || depth > 256) {
        return {};
    }
    switch (plist_get_node_type(node)) {
        case PLIST_BOOLEAN: {
            uint8_t b = 0;
            plist_get_bool_val(node, &b);
            return QVariant(b != 0);
        }
        case PLIST_UINT: {
            uint64_t u = 0;
            plist_get_uint_val(node, &u);
            return QVariant(static_cast<qint64>(u));
        }
        case PLIST_REAL: {
            double d = 0;
            plist_get_real_val(node, &d);
            return QVariant(d);
        }
        case PLIST_STRING:
        case PLIST_KEY: {
            char* s = nullptr;
            if (plist_get_node_type(node) == PLIST_STRING) {
                plist_get_string_val(node, &s);
            } else {
                plist_get_key_val(node, &s);
            }
            QString text = QString::fromUtf8(s != nullptr ? s : "");
            std::free(s);
            return QVariant(text);
        }
        case PLIST_DATE: {
            int32_t sec = 0;
            int32_t usec = 0;
            plist_get_date_val(node, &sec, &usec);
            return QVariant(dateFromAbsoluteTime(static_cast<double>(sec) + usec / 1e6));
        }
        case PLIST_DATA: {
            char* bytes = nullptr;
            uint64_t length = 0;
            plist_get_data_val(node, &bytes, &length);
            QByteArray data(bytes, static_cast<qsizetype>(length));
            std::free(bytes);
            return QVariant(data);
        }
        case PLIST_ARRAY: {
            QVariantList list;
            const uint32_t n = plist_array_get_size(node);
            for (uint32_t i = 0; i < n; ++i) {
                QVariant item = toVariant(plist_array_get_item(node, i), depth + 1);
                if (!item.isValid()) {
                    return {};
                }
                list.append(item);
            }
            return QVariant(list);
        }
        case PLIST_DICT: {
            QVariantMap map;
            plist_dict_iter it = nullptr;
            plist_dict_new_iter(node, &it);
            for (;;) {
                char* key = nullptr;
                plist_t value = nullptr;
                plist_dict_next_item(node, it, &key, &value);
                if (key == nullptr) {
                    break;
                }
                QVariant item = toVariant(value, depth + 1);
                const QString name = QString::fromUtf8(key);
                std::free(key);
                if (!item.isValid()) {
                    std::free(it);
                    return {};
                }
                map.insert(name, item);
            }
            std::free(it);
            return QVariant(map);
        }
        default:
            return {};
    }
}

plist_t fromVariant(const QVariant& value, int depth) {
    if (!value.isValid() || value.isNull() || depth > 256) {
        return nullptr;
    }
    switch (value.metaType().id()) {
        case QMetaType::Bool:
            return plist_new_bool(value.toBool() ? 1 : 0);
        case QMetaType::Int:
        case QMetaType::UInt:
        case QMetaType::Long:
        case QMetaType::ULong:
        case QMetaType::LongLong:
        case QMetaType::ULongLong:
        case QMetaType::Short:
        case QMetaType::UShort:
            return plist_new_uint(static_cast<uint64_t>(value.toLongLong()));
        case QMetaType::Double:
        case QMetaType::Float:
            return plist_new_real(value.toDouble());
        case QMetaType::QString:
            return plist_new_string(value.toString().toUtf8().constData());
        case QMetaType::QByteArray: {
            const QByteArray data = value.toByteArray();
            return plist_new_data(data.constData(), static_cast<uint64_t>(data.size()));
        }
        case QMetaType::QDateTime: {
            const double t = absoluteTimeFromDate(value.toDateTime());
            const double sec = std::floor(t);
            if (!(std::fabs(sec) < 2147483647.0)) {
                return nullptr;
            }
            return plist_new_date(static_cast<int32_t>(sec),
                                  static_cast<int32_t>(std::lround((t - sec) * 1e6)));
        }
        case QMetaType::QVariantList:
        case QMetaType::QStringList: {
            PlistPtr array(plist_new_array());
            for (const QVariant& item : value.toList()) {
                plist_t node = fromVariant(item, depth + 1);
                if (node == nullptr) {
                    return nullptr;
                }
                plist_array_append_item(array.get(), node);
            }
            return array.release();
        }
        case QMetaType::QVariantMap: {
            PlistPtr dict(plist_new_dict());
            const QVariantMap map = value.toMap();
            for (auto it = map.begin(); it != map.end(); ++it) {
                plist_t node = fromVariant(it.value(), depth + 1);
                if (node == nullptr) {
                    return nullptr;
                }
                plist_dict_set_item(dict.get(), it.key().toUtf8().constData(), node);
            }
            return dict.release();
        }
        default:
            return nullptr;
    }
}

}  // namespace

QVariant readPropertyList(const QByteArray& data) {
    if (data.isEmpty() || data.size() > std::numeric_limits<int32_t>::max()) {
        return {};
    }
    plist_t root = nullptr;
    plist_from_memory(data.constData(), static_cast<uint32_t>(data.size()), &root);
    PlistPtr owner(root);
    return toVariant(root, 0);
}

QVariant readPropertyListFile(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return {};
    }
    return readPropertyList(file.readAll());
}

QByteArray writePropertyListXml(const QVariant& value) {
    PlistPtr root(fromVariant(value, 0));
    if (!root) {
        return {};
    }
    char* xml = nullptr;
    uint32_t length = 0;
    plist_to_xml(root.get(), &xml, &length);
    QByteArray out(xml, static_cast<qsizetype>(length));
    plist_to_xml_free(xml);
    return out;
}

bool isPropertyListValue(const QVariant& value) {
    PlistPtr root(fromVariant(value, 0));
    return root != nullptr;
}

}  // namespace platform
