#pragma once

#include <clastool/classifier.h>
#include <clastool/kit/config.h>
#include <clastool/kit/scaler.h>

#include <iosfwd>
#include <string>

namespace ktKit {

/// A file cannot be read or written, or what stands in it is not what it should be. The message names the file, what is wrong
/// and where. Number 0x10004400.
class KT_KIT_API FileError : public ktExceptionWithString {
public:
    /// With the whole text of the message.
    explicit FileError(const std::string& message);

    long errorNumber() const override;
    void suicideAndRethrow() override;
};

/// Stores a tool, of any technique, trained or not, in one file. The file holds all that a run depends on: the tool's archive,
/// and what that leaves out. `throwIfNotReady` of the parameters is not kept.
///
/// The bytes go into a new file beside `path`, named `path` with ".part-" and eight hexadecimal digits behind it, which is then
/// renamed. So whoever opens `path` finds the old file or the new one, each whole; a save that throws leaves the old one and
/// removes what it wrote. Another process that stops half way, or a computer that loses power, may leave a ".part-" file.
///
/// The file, bytes counted from 0:
///
/// | Bytes | What |
/// |---|---|
/// | 0 to 7 | `6B 74 4B 69 74 0D 0A 1A`, "ktKit", a line end as Windows writes it, and 1A: what treats the file as text breaks this |
/// | 8 | version of the file: 0 |
/// | 9 to n - 5 | an archive (docs/archive-format.md), in one pass: the tool; the parameters in use, a pointer record: a ktClassifierTrainParamsKNN for nearest neighbours, else null; a vector of pointer records, the kt_PDFMultivariateNormal in which each binomial density has accumulated what it learnt, by category and group, empty for other techniques; the scaler, a pointer record: a ktKit::Scaler, or null |
/// | n - 4 to n - 1 | the checksum of all bytes before: CRC-32 of ISO 3309, lowest byte first. It finds every damage within 32 bits in a row |
///
/// Throws: what the archive throws, ktArchive::Corrupt for a class that is not registered (a metric of the caller's own) and
/// ktArchive::OutOfRange for a label beyond 32 bits among them; FileError "<path>: cannot be written".
/// Cost: linear in what the tool holds; a copy of the tool, which shares kept patterns.
/// See: ISO 3309, "High-level data link control procedures, frame structure", 1979.
KT_KIT_API void save(const ktClassifierTool& tool, const std::string& path);
/// Writes the bytes of such a file to a stream, opened binary: for a database, or to send them.
/// Throws: what the archive throws; FileError "stream: cannot be written".
KT_KIT_API void save(const ktClassifierTool& tool, std::ostream& stream);
/// Stores the scaler with the tool whose patterns it transforms.
KT_KIT_API void save(const ktClassifierTool& tool, const Scaler& scaler, const std::string& path);

/// The tool that `save` stored: each run gives the result, to the bit, that it gave then. For nearest neighbours that means with
/// the parameters that were in use, without `retrain`.
/// Throws: FileError
/// - "<path>: cannot be read";
/// - "<path>: an archive as ktArchive stores it, not a file of ktKit::save, at byte 0";
/// - "<path>: not a file of ktKit::save, at byte <n>", the first byte that differs;
/// - "<path>: unexpected end at byte <n>", before byte 13;
/// - "<path>: unknown version <v> at byte 8";
/// - "<path>: damaged or cut short: the checksum at byte <n> does not match";
/// - "<path>: the archive that begins at byte 9: <message>", for a ktArchive::Errors with that message: for one, a metric of a
///   class that this program does not register;
/// - "<path>: something else than a tool and its parameters before byte <n>", where the archive has ended, and which only a program
///   other than `save` can have written;
/// - "<path>: the tool was saved with a scaler, so it is loaded with one".
///
/// Cost: linear in the file, which is read twice.
KT_KIT_API ktClassifierTool load(const std::string& path);
/// The tool in a stream, opened binary, from where it stands to its end. Messages call the stream "stream", and count bytes from there.
/// Cost: linear in the bytes, which are held in memory.
KT_KIT_API ktClassifierTool load(std::istream& stream);
/// The tool, and the scaler that was saved with it, which changes only if nothing is thrown.
/// Throws: FileError as above, but last "<path>: the tool was saved without a scaler".
KT_KIT_API ktClassifierTool load(const std::string& path, Scaler& scaler);

}  // namespace ktKit
