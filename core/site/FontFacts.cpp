#include "core/site/FontFacts.hpp"

#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_MULTIPLE_MASTERS_H
#include FT_SFNT_NAMES_H
#include FT_TRUETYPE_IDS_H
#include FT_TRUETYPE_TABLES_H

#include <fmt/format.h>

#include <memory>

#include "core/base/Text.hpp"
#include "core/base/VorlenError.hpp"

namespace vorlen {

namespace {

constexpr FT_UShort typographicFamilyID = 16;

// A name of the Windows platform, in UTF-16 big-endian.
std::optional<std::string> typographicFamily(FT_Face face) {
    const auto count = FT_Get_Sfnt_Name_Count(face);
    for (FT_UInt index = 0; index < count; ++index) {
        FT_SfntName name;
        if (FT_Get_Sfnt_Name(face, index, &name) != 0) continue;
        if (name.name_id != typographicFamilyID || name.platform_id != TT_PLATFORM_MICROSOFT) continue;
        std::u32string text;
        for (FT_UInt at = 0; at + 1 < name.string_len; at += 2)
            text.push_back(char32_t(name.string[at] << 8 | name.string[at + 1]));
        if (!text.empty()) return toUtf8(text);
    }
    return std::nullopt;
}

}  // namespace

FontFacts FontFacts::read(std::string_view bytes, const std::string& fileName) {
    const auto unusable = [&] {
        return VorlenError::config(fmt::format(
            "\u201c{}\u201d is not a font that Vorlen can use. Use a WOFF2, WOFF, OTF or TTF file.", fileName));
    };
    if (!fontFormatOf(bytes)) throw unusable();
    FT_Library library = nullptr;
    if (FT_Init_FreeType(&library) != 0) throw unusable();
    const std::unique_ptr<FT_LibraryRec_, FT_Error (*)(FT_Library)> libraryOwner(library, FT_Done_FreeType);
    FT_Face face = nullptr;
    if (FT_New_Memory_Face(library, reinterpret_cast<const FT_Byte*>(bytes.data()), FT_Long(bytes.size()), 0, &face) != 0)
        throw unusable();
    const std::unique_ptr<FT_FaceRec_, FT_Error (*)(FT_Face)> faceOwner(face, FT_Done_Face);

    FontFacts facts;
    facts.family = trimmed(typographicFamily(face).value_or(face->family_name ? face->family_name : ""));
    if (facts.family.empty()) throw unusable();
    facts.isItalic = (face->style_flags & FT_STYLE_FLAG_ITALIC) != 0;
    if (const auto* os2 = static_cast<const TT_OS2*>(FT_Get_Sfnt_Table(face, FT_SFNT_OS2)); os2 && os2->usWeightClass > 0)
        facts.weight = FontWeight{os2->usWeightClass, os2->usWeightClass};
    else if (face->style_flags & FT_STYLE_FLAG_BOLD)
        facts.weight = FontWeight{700, 700};
    FT_MM_Var* axes = nullptr;
    if (FT_HAS_MULTIPLE_MASTERS(face) && FT_Get_MM_Var(face, &axes) == 0) {
        for (FT_UInt axis = 0; axis < axes->num_axis; ++axis)
            if (axes->axis[axis].tag == FT_MAKE_TAG('w', 'g', 'h', 't'))
                facts.weight = FontWeight{int(axes->axis[axis].minimum >> 16), int(axes->axis[axis].maximum >> 16)};
        FT_Done_MM_Var(library, axes);
    }
    return facts;
}

}  // namespace vorlen
