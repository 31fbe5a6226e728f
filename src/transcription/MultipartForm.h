#pragma once

#include <filesystem>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>

namespace nulo {

/// The body of a multipart/form-data request, written in the order in which fields are added.
/// Names and values are written as they are, without escaping.
class MultipartForm {
  public:
    /// `boundary` must occur in none of the values; a fresh UUID does not.
    explicit MultipartForm(std::string boundary) : m_boundary(std::move(boundary)) {}

    void addText(std::string_view name, std::string_view value);
    /// The audio file as field "file", under its own name and the type that its extension tells.
    void addAudioFile(const std::filesystem::path& path, std::string_view bytes);

    /// The value for the request's Content-Type header.
    std::string contentType() const;
    /// Closes the form and gives its bytes away; the form is of no further use.
    std::string takeBody();

  private:
    void append(std::initializer_list<std::string_view> pieces);

    std::string m_boundary;
    std::string m_body;
};

}  // namespace nulo
