#pragma once

#include <clastool/classifier.h>
#include <clastool/kit/config.h>
#include <clastool/kit/scaler.h>

#include <iosfwd>
#include <string>

namespace ktKit {

/// A file cannot be read or written, or its content is wrong. The message names the file, the fault and its place.
/// Number 0x10004400.
class KT_KIT_API FileError : public ktExceptionWithString {
public:
    /// With the whole text of the message.
    explicit FileError(const std::string& message);

    long errorNumber() const override;
    void suicideAndRethrow() override;
};

/// Stores a tool in one file. The tool may be of any technique, trained or not. The file holds everything that a run depends on: the
/// tool's archive, and what the archive leaves out. `throwIfNotReady` of the parameters is not stored.
///
/// The bytes first go into a new file in the same folder, named `path` with ".part-" and eight hexadecimal digits appended. That file
/// is then renamed. So a program that opens `path` finds either the old file or the new one, each complete. A save that throws keeps
/// the old file and removes its own. A process that stops half way, or a loss of power, may leave a ".part-" file.
///
/// The file, bytes counted from 0:
///
/// | Bytes | What |
/// |---|---|
/// | 0 to 7 | `6B 74 4B 69 74 0D 0A 1A`: "ktKit", a line end of Windows, and 1A. A program that treats the file as text breaks these |
/// | 8 | version of the file: 0 |
/// | 9 to n - 5 | an archive (docs/archive-format.md), in one pass: the tool; the parameters in use, a pointer record: a ktClassifierTrainParamsKNN for nearest neighbours, else null; a vector of pointer records, one kt_PDFMultivariateNormal for each binomial density, by category and group, which holds what the density accumulated, empty for other techniques; the scaler, a pointer record: a ktKit::Scaler, or null |
/// | n - 4 to n - 1 | the checksum of all bytes before: CRC-32 of ISO 3309, lowest byte first. It detects every damage within 32 consecutive bits |
///
/// Throws: what the archive throws, including ktArchive::Corrupt for a class that is not registered (a metric of the caller's own) and
/// ktArchive::OutOfRange for a label beyond 32 bits; FileError "<path>: cannot be written".
/// Cost: linear in what the tool holds. Copies the tool; the copy shares kept patterns.
/// See: ISO 3309, "High-level data link control procedures, frame structure", 1979.
KT_KIT_API void save(const ktClassifierTool& tool, const std::string& path);
/// Writes the bytes of such a file to a stream that was opened binary, for example to keep them in a database or to send them.
/// Throws: what the archive throws; FileError "stream: cannot be written".
KT_KIT_API void save(const ktClassifierTool& tool, std::ostream& stream);
/// Stores the scaler with the tool whose patterns it transforms.
KT_KIT_API void save(const ktClassifierTool& tool, const Scaler& scaler, const std::string& path);

/// Loads the tool that `save` stored. Each run gives the same result, to the bit. A nearest-neighbour tool runs with the parameters
/// that were in use, without `retrain`.
/// Throws: FileError
/// - "<path>: cannot be read";
/// - "<path>: an archive as ktArchive stores it, not a file of ktKit::save, at byte 0";
/// - "<path>: not a file of ktKit::save, at byte <n>", the first byte that differs;
/// - "<path>: unexpected end at byte <n>", before byte 13;
/// - "<path>: unknown version <v> at byte 8";
/// - "<path>: damaged or cut short: the checksum at byte <n> does not match";
/// - "<path>: the archive that begins at byte 9: <message>", for a ktArchive::Errors with that message, for example for a metric of a
///   class that this program does not register;
/// - "<path>: something else than a tool and its parameters before byte <n>", where the archive has ended. Only a program other than
///   `save` can have written such a file;
/// - "<path>: the tool was saved with a scaler, so it is loaded with one".
///
/// Cost: linear in the file, which is read twice.
KT_KIT_API ktClassifierTool load(const std::string& path);
/// Loads the tool from a stream that was opened binary, from its present position to its end. Messages call the stream "stream", and
/// count bytes from that position.
/// Cost: linear in the bytes, which are kept in memory.
KT_KIT_API ktClassifierTool load(std::istream& stream);
/// Loads the tool, and the scaler that was saved with it. `scaler` changes only if nothing is thrown.
/// Throws: FileError as above, but last "<path>: the tool was saved without a scaler".
KT_KIT_API ktClassifierTool load(const std::string& path, Scaler& scaler);

}  // namespace ktKit
