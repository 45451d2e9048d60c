/** @file
 * Writes scenes as text.
 */
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "scene/scene_fields.h"
#include "zet_simulator_scene_json.h"

namespace
{

using namespace zet_simulator;

/** A text in a buffer; what has no room is left out, but counted. */
class text_writer
{
public:
    text_writer(char *buffer, size_t size) : buffer_(buffer), size_(size)
    {
    }

    /** Adds text. */
    text_writer &add(const char *text)
    {
        const size_t added = std::strlen(text);
        if (length_ < size_)
        {
            const size_t fitting = std::min(added, size_ - length_ - 1U);
            std::memcpy(buffer_ + length_, text, fitting);
            buffer_[length_ + fitting] = '\0';
        }
        length_ += added;
        return *this;
    }

    /** Length of the text with what has no room. */
    [[nodiscard]] size_t length() const
    {
        return length_;
    }

private:
    char *buffer_;
    size_t size_;
    size_t length_ = 0;
};

/** Adds a number: the shortest one that is read as the same value. */
void write_number(text_writer &text, double value, field_type type)
{
    char digits[32];
    const int most_digits = 9;
    for (int precision = 6; precision <= most_digits; ++precision)
    {
        static_cast<void>(std::snprintf(digits, sizeof(digits), "%.*g", precision, value));
        const double read = std::strtod(digits, nullptr);
        if ((type == field_type::real ? static_cast<double>(static_cast<float>(read)) : read) == value)
        {
            break;
        }
    }
    text.add(digits);
}

/** Returns the word for the value of a field; null when it is a number. */
const char *word_of(const scene_field &field, double value)
{
    if (field.type == field_type::fault)
    {
        return scene_fault_words[static_cast<size_t>(value)];
    }
    return field.type == field_type::fluctuation ? scene_fluctuation_words[static_cast<size_t>(value)]
                                                 : nullptr;
}

/** Adds a field of an entry. */
void write_field(text_writer &text, const scene_field &field, double value, const char *separator)
{
    text.add(separator).add("\"").add(field.name).add("\":");
    if (const char *word = word_of(field, value); word != nullptr)
    {
        text.add("\"").add(word).add("\"");
        return;
    }
    write_number(text, value, field.type);
}

/** Adds the fields of an entry for which @p is_written (field, value) is true. */
template <typename is_written_t>
void write_fields(text_writer &text, const scene_section &section, const unsigned char *record,
                  const is_written_t &is_written)
{
    const char *separator = "";
    for (uint32_t i = 0; i < section.field_count; ++i)
    {
        const scene_field &field = section.fields[i];
        const double value = scene_field_get(record, field);
        if (field.required || is_written(field, value))
        {
            write_field(text, field, value, separator);
            separator = ",";
        }
    }
}

/** Adds a list of entries, each by @p write_entry (record). */
template <typename write_entry_t>
void write_list(text_writer &text, const scene_section &section, const unsigned char *records, uint32_t count,
                const write_entry_t &write_entry)
{
    text.add("\"").add(section.name).add("\":[");
    for (uint32_t index = 0; index < count; ++index)
    {
        text.add(index > 0U ? ",{" : "{");
        write_entry(records + index * section.entry_size);
        text.add("}");
    }
    text.add("]");
}

/** Returns whether a value is not the one of a field that is left out. */
bool is_not_zero(const scene_field & /*field*/, double value)
{
    return value != 0.0;
}

/** Returns whether a field is a part of a place. */
bool is_coordinate(const scene_field &field)
{
    return std::strcmp(field.name, "x_m") == 0 || std::strcmp(field.name, "y_m") == 0 ||
           std::strcmp(field.name, "z_m") == 0;
}

/** Adds the oscillations of a target, if it has any. */
void write_oscillations(text_writer &text, const zet_simulator_scene_t &scene,
                        const zet_simulator_target_t &target)
{
    if (target.oscillation_count == 0U)
    {
        return;
    }
    const auto *records =
        reinterpret_cast<const unsigned char *>(&scene.oscillations[target.first_oscillation]);
    text.add(",");
    write_list(text, scene_oscillations, records, target.oscillation_count, [&](const unsigned char *record) {
        write_fields(text, scene_oscillations, record, is_not_zero);
    });
}

/** Adds the track of a target, if it has one. */
void write_track(text_writer &text, const zet_simulator_scene_t &scene, const zet_simulator_target_t &target)
{
    if (target.keyframe_count == 0U)
    {
        return;
    }
    const auto is_of_kind = [&](const scene_field &field, double /*value*/) {
        return is_coordinate(field) == target.has_place;
    };
    const auto *records = reinterpret_cast<const unsigned char *>(&scene.keyframes[target.first_keyframe]);
    text.add(",");
    write_list(text, scene_keyframes, records, target.keyframe_count,
               [&](const unsigned char *record) { write_fields(text, scene_keyframes, record, is_of_kind); });
}

/** Adds a target, without the end of the object. */
void write_target(text_writer &text, const zet_simulator_scene_t &scene, const unsigned char *record)
{
    const auto &target = *reinterpret_cast<const zet_simulator_target_t *>(record);
    write_fields(text, scene_sections[0], record, [&](const scene_field &field, double value) {
        const bool turns_at_zero = std::strcmp(field.name, "nearest_m") == 0 && target.farthest_m != 0.0F;
        return value != 0.0 || turns_at_zero || (is_coordinate(field) && target.has_place);
    });
    write_oscillations(text, scene, target);
    write_track(text, scene, target);
}

/** Adds an entry of a list of the scene. */
void write_entry(text_writer &text, const zet_simulator_scene_t &scene, const scene_section &section,
                 const unsigned char *record)
{
    if (&section == &scene_sections[0])
    {
        write_target(text, scene, record);
        return;
    }
    // A missing value of hardware is its default.
    const bool is_hardware = &section == &scene_hardware;
    write_fields(text, section, record, [&](const scene_field &field, double value) {
        return value != 0.0 || (is_hardware && &field != &section.fields[0]);
    });
}

/** Adds a list of the scene. */
void write_section(text_writer &text, const zet_simulator_scene_t &scene, const scene_section &section)
{
    const uint32_t count = scene_count_get(scene, section);
    if (&section == &scene_hardware && count == 0U)
    {
        text.add("\"").add(section.name).add("\":\"").add(scene_ideal_word).add("\"");
        return;
    }
    const auto *bytes = reinterpret_cast<const unsigned char *>(&scene);
    write_list(text, section, bytes + section.entries_offset, count,
               [&](const unsigned char *record) { write_entry(text, scene, section, record); });
}

} // namespace

size_t zet_simulator_scene_to_json(const zet_simulator_scene_t *scene, char *text, size_t size)
{
    text_writer document(text, size);
    const char *separator = "{";
    for (const scene_section &section : scene_sections)
    {
        document.add(separator);
        separator = ",";
        write_section(document, *scene, section);
    }
    document.add("}");
    return document.length();
}
