#include "DocumentTypes.h"

#include <random>

namespace {

struct KindRow {
    FieldKind kind;
    std::string_view raw;
    std::string_view title;
};

constexpr KindRow kindRows[] = {
    {FieldKind::number, "number", "Номера документа"},
    {FieldKind::address, "address", "Адрес"},
    {FieldKind::birthDate, "birthDate", "Дата рождения"},
    {FieldKind::face, "face", "Лицо"},
    {FieldKind::issueDate, "issueDate", "Дата выдачи"},
    {FieldKind::expiryDate, "expiryDate", "Срок действия"},
    {FieldKind::machineReadable, "machineReadable", "MRZ и штрихкоды"},
    {FieldKind::uncertain, "uncertain", "Неопределённое поле"},
    {FieldKind::manual, "manual", "Ручная маска"},
    {FieldKind::personName, "personName", "Имя / фамилия (сохранено)"},
    {FieldKind::phone, "phone", "Телефон"},
    {FieldKind::email, "email", "Email"},
};

struct EvidenceRow {
    FieldEvidence evidence;
    std::string_view raw;
};

constexpr EvidenceRow evidenceRows[] = {
    {FieldEvidence::label, "Подпись поля"},
    {FieldEvidence::nearbyLabel, "Рядом с подписью"},
    {FieldEvidence::format, "Эвристика формата"},
    {FieldEvidence::machineReadable, "Машиночитаемые данные"},
    {FieldEvidence::nameCandidate, "Предположительно имя"},
    {FieldEvidence::vision, "Обнаружено на изображении"},
    {FieldEvidence::manual, "Ручная маска"},
};

} // namespace

std::string_view rawValue(FieldKind kind) noexcept {
    return kindRows[static_cast<int>(kind)].raw;
}

std::string_view title(FieldKind kind) noexcept {
    return kindRows[static_cast<int>(kind)].title;
}

std::optional<FieldKind> fieldKind(std::string_view raw) noexcept {
    for (const KindRow& row : kindRows) {
        if (row.raw == raw) {
            return row.kind;
        }
    }
    return std::nullopt;
}

std::string_view rawValue(FieldEvidence evidence) noexcept {
    return evidenceRows[static_cast<int>(evidence)].raw;
}

std::optional<FieldEvidence> fieldEvidence(std::string_view raw) noexcept {
    for (const EvidenceRow& row : evidenceRows) {
        if (row.raw == raw) {
            return row.evidence;
        }
    }
    return std::nullopt;
}

bool RedactionPolicy::hides(FieldKind kind) const noexcept {
    switch (kind) {
    case FieldKind::face:
        return hideFace;
    case FieldKind::issueDate:
        return hideIssueDate;
    case FieldKind::expiryDate:
        return hideExpiryDate;
    case FieldKind::personName:
        return hidePersonName;
    default:
        return true;
    }
}

std::string CopyMark::line() const {
    return purpose.empty() ? word + " · " + date : word + " · " + purpose + " · " + date;
}

Uuid Uuid::random() {
    std::random_device device;
    Uuid id;
    for (std::size_t i = 0; i < id.bytes.size(); i += 4) {
        const unsigned value = device();
        for (std::size_t b = 0; b < 4; ++b) {
            id.bytes[i + b] = static_cast<std::uint8_t>(value >> (8 * b));
        }
    }
    id.bytes[6] = static_cast<std::uint8_t>((id.bytes[6] & 0x0F) | 0x40);
    id.bytes[8] = static_cast<std::uint8_t>((id.bytes[8] & 0x3F) | 0x80);
    return id;
}

std::string Uuid::string() const {
    static constexpr char hex[] = "0123456789ABCDEF";
    std::string text;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) {
            text += '-';
        }
        text += hex[bytes[i] >> 4];
        text += hex[bytes[i] & 0x0F];
    }
    return text;
}

const char* DocumentError::what() const noexcept {
    switch (code_) {
    case invalidImage:
        return "Не удалось прочитать изображение. Выберите JPEG, PNG или HEIC.";
    case tooLarge:
        return "Изображение слишком большое. Максимум: 80 МБ и 50 мегапикселей.";
    case exportFailed:
        return "Не удалось сохранить файл. Проверьте свободное место и доступ к папке.";
    case cancelled:
        return "Обработка отменена.";
    }
    return "";
}

CountryDetection CountryDetection::unknown() {
    return CountryDetection{std::nullopt, "Страна не определена", "Общие правила", false, false};
}
