// SPDX-License-Identifier: MIT
#include "documents.h"

#include "modules.h"

#include "zorvan/features/configurationfpfh.h"
#include "zorvan/preregistration/settingsserialization.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/workflow/autosettings.h"
#include "zorvan/workflow/documentfile.h"
#include "zorvan/workflow/settingsfile.h"
#include "zorvan/workflow/settingwords.h"

#include <pybind11/stl.h>
#include <pybind11/stl/filesystem.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <memory>
#include <utility>

namespace bindings {

namespace {

using bson::element;

// The interpreter's stack is for some hundred calls of ours; real documents nest less than ten deep.
constexpr unsigned uiMostNesting = 200;

py::dict toPython(const bson::object& document, unsigned depth);

/// A class of the package, for values that Python has no type for.
py::object kindOf(const char* name) { return py::module_::import("zorvan").attr(name); }

/// A value from 64 bits down.
py::object integer(const element& e)
{
    switch (e.type()) {
    case element::eInt8:
        return py::int_(e.as_int8());
    case element::eInt16:
        return py::int_(e.as_int16());
    case element::eInt32:
        return py::int_(e.as_int32());
    case element::eInt64:
        return py::int_(e.as_int64());
    case element::eUInt8:
        return py::int_(e.as_uint8());
    case element::eUInt16:
        return py::int_(e.as_uint16());
    case element::eUInt32:
        return py::int_(e.as_uint32());
    default:
        return py::int_(e.as_uint64());
    }
}

py::object binary(const element& e)
{
    const auto [data, size, type] = e.as_binary();
    return py::bytes(reinterpret_cast<const char*>(data), size);
}

py::object valueOf(const element& e, unsigned depth)
{
    switch (e.type()) {
    case element::eDouble:
        return py::float_(e.as_double());
    case element::eFloat:
        return py::float_(static_cast<double>(e.as_float()));
    case element::eString:
        return py::str(e.as_string());
    case element::eObject:
        return toPython(e.as_object(), depth + 1);
    case element::eBinary:
        return binary(e);
    case element::eBoolean:
        return py::bool_(e.as_boolean());
    case element::eDateTime:
        return kindOf("DateTime")(e.as_datetime().count());
    case element::eRegex:
        return kindOf("Regex")(e.as_regex().first, e.as_regex().second);
    case element::eNull:
    case element::eEmpty:
        return py::none();
    default:
        return integer(e);
    }
}

py::dict toPython(const bson::object& document, unsigned depth)
{
    if (depth > uiMostNesting) throw py::value_error("a document nested more than 200 deep");
    py::dict dict;
    py::set lists; // names that have come more than once
    for (const element& e : document) {
        const py::str name(e.name_string());
        const py::object value = valueOf(e, depth);
        if (!dict.contains(name)) {
            dict[name] = value;
            continue;
        }
        if (!lists.contains(name)) {
            py::list list;
            list.append(dict[name]);
            dict[name] = list;
            lists.add(name);
        }
        dict[name].cast<py::list>().append(value);
    }
    return dict;
}

void add(bson::object& document, const std::string& name, const py::handle& value, unsigned depth);

bson::object toDocument(const py::dict& dict, unsigned depth)
{
    if (depth > uiMostNesting) throw py::value_error("a document nested more than 200 deep");
    bson::object document;
    for (const auto& [key, value] : dict) {
        if (!py::isinstance<py::str>(key)) throw py::type_error("a document has texts as names");
        const auto name = key.cast<std::string>();
        if (name.find('\0') != std::string::npos) throw py::value_error("a name with a NUL character in it");
        add(document, name, value, depth);
    }
    return document;
}

element integer(const std::string& name, const py::handle& value)
{
    int isTooLarge = 0;
    const long long number = PyLong_AsLongLongAndOverflow(value.ptr(), &isTooLarge);
    if (isTooLarge != 0) {
        const unsigned long long large = PyLong_AsUnsignedLongLong(value.ptr());
        if (PyErr_Occurred() == nullptr) return {name, large};
        PyErr_Clear();
        throw py::value_error(name + ": a whole number beyond 64 bits");
    }
    if (number >= std::numeric_limits<int>::min() && number <= std::numeric_limits<int>::max())
        return {name, static_cast<int>(number)};
    return {name, number};
}

element dateTime(const std::string& name, const py::handle& value)
{
    const long long count = PyLong_AsLongLong(value.ptr());
    if (PyErr_Occurred() != nullptr) {
        PyErr_Clear();
        throw py::value_error(name + ": a time beyond 64 bits of milliseconds");
    }
    if (count == std::numeric_limits<long long>::min())
        throw py::value_error(name + ": this time means now, and no document holds it");
    return element::make_datetime(name, std::chrono::milliseconds(count));
}

element elementOf(const std::string& name, const py::handle& value, unsigned depth)
{
    if (py::isinstance(value, kindOf("DateTime"))) return dateTime(name, value);
    if (py::isinstance(value, kindOf("Regex"))) {
        const auto [pattern, options] = value.cast<std::pair<std::string, std::string>>();
        if ((pattern + options).find('\0') != std::string::npos)
            throw py::value_error(name + ": a NUL character in a regular expression");
        return element::make_regex(name, pattern, options);
    }
    if (value.is_none()) return element::make_null(name);
    if (py::isinstance<py::bool_>(value)) return {name, value.cast<bool>()};
    if (py::isinstance<py::str>(value)) return {name, value.cast<std::string>()};
    if (py::isinstance<py::dict>(value)) return {name, toDocument(py::reinterpret_borrow<py::dict>(value), depth + 1)};
    if (py::isinstance<py::bytes>(value)) {
        const auto bytes = value.cast<std::string_view>();
        return {name, static_cast<const void*>(bytes.data()), bytes.size()};
    }
    if (PyIndex_Check(value.ptr()) != 0)
        return integer(name, py::reinterpret_steal<py::object>(PyNumber_Index(value.ptr())));
    if (PyFloat_Check(value.ptr()) != 0 || py::hasattr(value, "__float__"))
        return {name, py::float_(value.cast<py::object>()).cast<double>()};
    throw py::type_error(name + ": a document holds no " +
                         py::str(py::type::of(value).attr("__name__")).cast<std::string>());
}

void add(bson::object& document, const std::string& name, const py::handle& value, unsigned depth)
{
    if (!py::isinstance<py::list>(value)) {
        document += elementOf(name, value, depth);
        return;
    }
    for (const py::handle item : py::reinterpret_borrow<py::list>(value)) document += elementOf(name, item, depth);
}

py::bytes freeze(const py::dict& dict)
{
    const auto [bytes, size] = ToDocument(dict).freeze();
    return {reinterpret_cast<const char*>(bytes.get()), size};
}

bson::object thaw(const py::bytes& bytes)
{
    const auto view = bytes.cast<std::string_view>();
    const std::shared_ptr<unsigned char[]> copy(new unsigned char[view.size()]);
    std::copy(view.begin(), view.end(), copy.get());
    bson::unfreeze_end end;
    bson::object document = bson::object::unfreeze(copy, view.size(), end);
    if (end.reason != bson::unfreeze_end::eWhole || end.position != view.size())
        throw py::value_error("no document, or a damaged one: it ends at byte " + std::to_string(end.position) +
                              " of " + std::to_string(view.size()));
    return document;
}

py::dict settings(double grid, const py::object& changes)
{
    if (!(grid > 0.0) || grid > std::numeric_limits<float>::max())
        throw py::value_error("grid: needs a positive length, mm");
    return ToPython(bson::to_object(prereg::WithSettings(prereg::AllSettingsForGrid(grid), SettingsOf(changes))));
}

} // namespace

bson::object SettingsOf(const py::object& settings)
{
    if (settings.is_none()) return {};
    if (!py::isinstance<py::dict>(settings)) throw py::type_error("settings: needs a dict of names and numbers");
    return prereg::CheckSettings(ToDocument(py::reinterpret_borrow<py::dict>(settings)), "settings");
}

py::dict ToPython(const bson::object& document) { return toPython(document, 0); }

bson::object ToDocument(const py::dict& document) { return toDocument(document, 0); }

void AddDocuments(py::module_& module)
{
    module.def("settings", &settings, py::arg("grid") = 0.1, py::arg("changes") = py::none(),
               "All settings for points `grid` mm apart, as a dict; `changes` replace some. Lengths in mm, angles in\n"
               "radians. Raises InputError for a name that no setting has and a value that its setting cannot have.");
    module.def("describe_setting", &prereg::WordsForSetting, py::arg("name"),
               "Unit and meaning of a setting; an empty text for a name that no setting has.");
    module.def(
        "read_settings", [](const std::filesystem::path& file) { return ToPython(prereg::ReadSettingsFile(file)); },
        py::arg("file"), "The settings of a text file, as `zorvan settings` writes them.");
    module.def(
        "document_to_bytes", &freeze, py::arg("document"),
        "The saved form of a document: whole numbers become int32, int64 or uint64, float double, list one value\n"
        "each; DateTime and Regex stay what they are.");
    module.def(
        "document_from_bytes", [](const py::bytes& bytes) { return ToPython(thaw(bytes)); }, py::arg("data"),
        "A saved document as a dict. A name that comes twice becomes a list.");
    module.def(
        "read_document", [](const std::filesystem::path& file) { return ToPython(prereg::ReadDocumentFile(file)); },
        py::arg("file"), "A file with a saved document, such as a session, as a dict.");
}

} // namespace bindings
