#pragma once

#include <array>
#include <cmath>
#include <fstream>
#include <functional>
#include <iomanip>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace examples {

/// One axis of a plot: its label with the unit, the values at its ends, and the distance of the ticks.
struct SvgAxis {
    std::string label;
    double low;
    double high;
    double step;
};

/// A plot with two axes, and a legend to the right of it. What is drawn later lies on top.
class SvgPlot {
public:
    using Point = std::array<double, 2>;

    SvgPlot(const std::string& title, const SvgAxis& x, const SvgAxis& y) : title_(title), x_(x), y_(y) {}

    /// Straight lines from point to point.
    void line(const std::vector<Point>& points, const std::string& color)
    {
        std::string path;
        for (const Point& point : points) {
            path += (path.empty() ? "" : " ") + number(left(point[0])) + "," + number(top(point[1]));
        }
        shapes_ += "<polyline fill=\"none\" stroke=\"" + color + "\" stroke-width=\"2.5\" points=\"" + path + "\"/>\n";
    }

    void disc(const Point& center, const std::string& color)
    {
        shapes_ += discAt(left(center[0]), top(center[1]), color);
    }

    /// Colours the plot in cells, each by its middle. A cell whose colour is empty stays white.
    void regions(int columns, int rows, const std::function<std::string(double x, double y)>& colorAt)
    {
        const double width = (x_.high - x_.low) / columns;
        const double height = (y_.high - y_.low) / rows;
        for (int row = 0; row < rows; ++row) {
            const double y = y_.low + row * height;
            // Neighbours of one colour are one rectangle, which keeps the file small.
            int start = 0;
            std::string color;
            for (int column = 0; column <= columns; ++column) {
                const std::string next =
                    column < columns ? colorAt(x_.low + (column + 0.5) * width, y + 0.5 * height) : std::string();
                if (next != color) {
                    rectangle(x_.low + start * width, x_.low + column * width, y, y + height, color);
                    start = column;
                    color = next;
                }
            }
        }
    }

    /// Entries of the legend, from top to bottom.
    void legendArea(const std::string& color, const std::string& words)
    {
        legend(words, "<rect x=\"-8\" y=\"-8\" width=\"16\" height=\"16\" stroke=\"#888888\" fill=\"" + color + "\"/>");
    }
    void legendLine(const std::string& color, const std::string& words)
    {
        legend(words, "<path d=\"M-10,0 h20\" stroke-width=\"2.5\" stroke=\"" + color + "\"/>");
    }
    void legendDisc(const std::string& color, const std::string& words) { legend(words, discAt(0, 0, color)); }

    /// Throws std::runtime_error if the file cannot be written.
    void save(const std::string& path) const
    {
        std::ofstream file(path);
        file << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << number(totalWidth) << "\" height=\""
             << number(totalHeight) << "\" font-family=\"sans-serif\" font-size=\"14\">\n"
             << "<rect width=\"100%\" height=\"100%\" fill=\"white\"/>\n"
             << "<text x=\"" << number(marginLeft) << "\" y=\"28\" font-size=\"17\" font-weight=\"bold\">"
             << escaped(title_) << "</text>\n"
             << shapes_ << "<rect x=\"" << number(marginLeft) << "\" y=\"" << number(marginTop) << "\" width=\""
             << number(plotWidth) << "\" height=\"" << number(plotHeight) << "\" fill=\"none\" stroke=\"black\"/>\n"
             << xTicks() << yTicks() << legend_ << "</svg>\n";
        file.close();
        if (!file) {
            throw std::runtime_error(path + ": cannot be written");
        }
    }

private:
    static constexpr double marginLeft = 80;
    static constexpr double marginTop = 46;
    static constexpr double plotWidth = 480;
    static constexpr double plotHeight = 320;
    static constexpr double totalWidth = 800;
    static constexpr double totalHeight = 430;

    double left(double x) const { return marginLeft + plotWidth * (x - x_.low) / (x_.high - x_.low); }
    double top(double y) const { return marginTop + plotHeight * (y_.high - y) / (y_.high - y_.low); }

    /// A place in pixels.
    static std::string number(double value)
    {
        std::ostringstream out;
        out << std::fixed << std::setprecision(1) << value;
        return out.str();
    }

    static std::string escaped(const std::string& words)
    {
        std::string out;
        for (const char c : words) {
            out += c == '&' ? "&amp;" : c == '<' ? "&lt;" : std::string(1, c);
        }
        return out;
    }

    static std::string textAt(double x, double y, const std::string& anchor, const std::string& words)
    {
        return "<text x=\"" + number(x) + "\" y=\"" + number(y) + "\" text-anchor=\"" + anchor + "\">" +
               escaped(words) + "</text>\n";
    }

    static std::string discAt(double x, double y, const std::string& color)
    {
        return "<circle cx=\"" + number(x) + "\" cy=\"" + number(y) + "\" r=\"5\" stroke=\"white\" fill=\"" + color +
               "\"/>\n";
    }

    void rectangle(double x0, double x1, double y0, double y1, const std::string& color)
    {
        if (!color.empty()) {
            // Edges are drawn sharp, or the white below would shine through between two rectangles.
            shapes_ += "<rect shape-rendering=\"crispEdges\" x=\"" + number(left(x0)) + "\" y=\"" + number(top(y1)) +
                       "\" width=\"" + number(left(x1) - left(x0)) + "\" height=\"" + number(top(y0) - top(y1)) +
                       "\" fill=\"" + color + "\"/>\n";
        }
    }

    void legend(const std::string& words, const std::string& symbol)
    {
        const double x = marginLeft + plotWidth + 30;
        const double y = marginTop + 12 + 26 * entries_++;
        legend_ += "<g transform=\"translate(" + number(x) + "," + number(y) + ")\">" + symbol + "</g>\n" +
                   textAt(x + 18, y + 5, "start", words);
    }

    /// The values of the ticks.
    static std::vector<double> ticks(const SvgAxis& axis)
    {
        std::vector<double> values;
        const int count = static_cast<int>(std::floor((axis.high - axis.low) / axis.step + 1e-9));
        for (int i = 0; i <= count; ++i) {
            values.push_back(axis.low + i * axis.step);
        }
        return values;
    }

    /// The value of a tick with as many decimals as the distance of the ticks has.
    static std::string tickText(double value, double step)
    {
        int decimals = 0;
        for (double scaled = step; decimals < 6 && std::abs(scaled - std::round(scaled)) > 1e-6; scaled *= 10.0) {
            ++decimals;
        }
        std::ostringstream out;
        // What rounding left of zero would show as -0.
        out << std::fixed << std::setprecision(decimals) << (std::abs(value) < step * 1e-6 ? 0.0 : value);
        return out.str();
    }

    std::string xTicks() const
    {
        const double bottom = marginTop + plotHeight;
        std::string out;
        for (const double value : ticks(x_)) {
            out += "<path d=\"M" + number(left(value)) + "," + number(bottom) + " v6\" stroke=\"black\"/>\n" +
                   textAt(left(value), bottom + 21, "middle", tickText(value, x_.step));
        }
        return out + textAt(marginLeft + plotWidth / 2, bottom + 48, "middle", x_.label);
    }

    std::string yTicks() const
    {
        std::string out;
        for (const double value : ticks(y_)) {
            out += "<path d=\"M" + number(marginLeft) + "," + number(top(value)) + " h-6\" stroke=\"black\"/>\n" +
                   textAt(marginLeft - 10, top(value) + 5, "end", tickText(value, y_.step));
        }
        return out + "<g transform=\"translate(24," + number(marginTop + plotHeight / 2) + ") rotate(-90)\">" +
               textAt(0, 0, "middle", y_.label) + "</g>\n";
    }

    std::string title_;
    SvgAxis x_;
    SvgAxis y_;
    std::string shapes_;
    std::string legend_;
    int entries_ = 0;
};

}  // namespace examples
