#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <fstream>
#include <functional>
#include <iomanip>
#include <map>
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

/// An axis from the least of these values to the greatest, and a little further, with ticks at round numbers.
inline SvgAxis axisOver(const std::string& label, const std::vector<double>& values)
{
    const auto [least, greatest] = std::minmax_element(values.begin(), values.end());
    const double span = *least < *greatest ? *greatest - *least : 1.0;
    double step = std::pow(10.0, std::floor(std::log10(span))) / 10.0;
    for (int i = 0; span / step > 9.0; ++i) {
        step *= i % 3 == 1 ? 2.5 : 2.0;  // 1, 2, 5, 10
    }
    return {label, *least - 0.05 * span, *greatest + 0.05 * span, step};
}

/// Where the frame of a plot lies in its picture, in pixels.
struct SvgFrame {
    double left = 80;
    double top = 46;
    double width = 480;
    double height = 320;
};

/// A plot with two axes, a title above it, and a legend to the right of it. What is drawn later lies on top.
class SvgPlot {
public:
    using Point = std::array<double, 2>;

    SvgPlot(const std::string& title, const SvgAxis& x, const SvgAxis& y, const SvgFrame& frame = {})
        : title_(title), x_(x), y_(y), frame_(frame)
    {
    }

    /// The graph of a function, with its entry in the legend.
    void curve(const std::function<double(double)>& function, const std::string& words)
    {
        static const char* const colors[] = {"#1f5fa8", "#c2410c", "#2e7d32", "#6a1b9a"};
        const std::string color = colors[entries_ % 4];
        const int steps =
            static_cast<int>(2 * frame_.width);  // two points for each pixel, so that a jump looks like one
        std::string path;
        for (int i = 0; i <= steps; ++i) {
            const double x = x_.low + i * (x_.high - x_.low) / steps;
            path += (i == 0 ? "" : " ") + number(left(x)) + "," + number(top(function(x)));
        }
        shapes_ += "<polyline fill=\"none\" stroke=\"" + color + "\" stroke-width=\"2.5\" points=\"" + path + "\"/>\n";
        legend(words, "<path d=\"M-10,0 h20\" stroke-width=\"2.5\" stroke=\"" + color + "\"/>");
    }

    /// Many small marks of one kind: triangles or discs.
    void marks(const std::vector<Point>& points, long kind, const std::string& color)
    {
        std::string path;
        for (const Point& point : points) {
            path += "M" + number(left(point[0])) + "," + number(top(point[1])) + markOf(kind);
        }
        shapes_ += markPath(path, color);
    }

    /// Colours the plot in cells, each by its middle. A cell whose colour is empty stays white.
    void regions(int columns, int rows, const std::function<std::string(double x, double y)>& colorAt)
    {
        const double width = (x_.high - x_.low) / columns;
        const double height = (y_.high - y_.low) / rows;
        std::map<std::string, std::string> paths;
        for (int row = 0; row < rows; ++row) {
            const double y = y_.low + row * height;
            // Neighbours of one colour are one rectangle, and all of a colour one path, which keeps the file small.
            int start = 0;
            std::string color;
            for (int column = 0; column <= columns; ++column) {
                const std::string next =
                    column < columns ? colorAt(x_.low + (column + 0.5) * width, y + 0.5 * height) : std::string();
                if (next != color) {
                    if (!color.empty()) {
                        paths[color] += rectangle(x_.low + start * width, x_.low + column * width, y, y + height);
                    }
                    start = column;
                    color = next;
                }
            }
        }
        for (const auto& [color, path] : paths) {
            // Edges are drawn sharp, or the white below would shine through between two rectangles.
            shapes_ += "<path shape-rendering=\"crispEdges\" fill=\"" + color + "\" d=\"" + path + "\"/>\n";
        }
    }

    /// Entries of the legend, from top to bottom.
    void legendArea(const std::string& color, const std::string& words)
    {
        legend(words, "<rect x=\"-8\" y=\"-8\" width=\"16\" height=\"16\" stroke=\"#888888\" fill=\"" + color + "\"/>");
    }
    void legendMark(long kind, const std::string& color, const std::string& words)
    {
        legend(words, markPath("M0,0" + std::string(markOf(kind)), color));
    }

    /// Saves a picture of this plot alone.
    /// Throws: std::runtime_error if the file cannot be written.
    void save(const std::string& path) const { save(path, "", {this}, 800, 430); }

    /// Saves a picture of several plots, each in its own frame.
    /// Throws: std::runtime_error if the file cannot be written.
    static void save(const std::string& path, const std::string& title, const std::vector<const SvgPlot*>& plots,
                     double width, double height)
    {
        std::ofstream file(path, std::ios::binary);  // the same bytes everywhere
        file << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << number(width) << "\" height=\""
             << number(height) << "\" viewBox=\"0 0 " << number(width) << " " << number(height)
             << "\" font-family=\"sans-serif\" font-size=\"14\">\n"
             << "<rect width=\"100%\" height=\"100%\" fill=\"white\"/>\n";
        if (!title.empty()) {
            file << heading(plots.at(0)->frame_.left, 32, 20, title);
        }
        for (const SvgPlot* plot : plots) {
            file << plot->body();
        }
        file << "</svg>\n";
        file.close();
        if (!file) {
            throw std::runtime_error(path + ": cannot be written");
        }
    }

private:
    /// From the middle of a mark around it.
    static const char* markOf(long kind)
    {
        return kind % 2 == 0 ? "m0,-3.8l3.4,5.9h-6.8z" : "m-2.6,0a2.6,2.6 0 1 0 5.2,0a2.6,2.6 0 1 0 -5.2,0z";
    }

    double left(double x) const { return frame_.left + frame_.width * (x - x_.low) / (x_.high - x_.low); }
    double top(double y) const { return frame_.top + frame_.height * (y_.high - y) / (y_.high - y_.low); }

    /// A place in pixels.
    static std::string number(double value)
    {
        std::ostringstream out;
        out << std::fixed << std::setprecision(1) << value;
        std::string text = out.str();
        if (text.substr(text.size() - 2) == ".0") {
            text.resize(text.size() - 2);
        }
        return text;
    }

    static std::string escaped(const std::string& words)
    {
        std::string out;
        for (const char c : words) {
            out += c == '&' ? "&amp;" : c == '<' ? "&lt;" : std::string(1, c);
        }
        return out;
    }

    static std::string heading(double x, double y, double size, const std::string& words)
    {
        return "<text x=\"" + number(x) + "\" y=\"" + number(y) + "\" font-size=\"" + number(size) +
               "\" font-weight=\"bold\">" + escaped(words) + "</text>\n";
    }

    static std::string textAt(double x, double y, const std::string& anchor, const std::string& words)
    {
        return "<text x=\"" + number(x) + "\" y=\"" + number(y) + "\" text-anchor=\"" + anchor + "\">" +
               escaped(words) + "</text>\n";
    }

    static std::string markPath(const std::string& path, const std::string& color)
    {
        return "<path fill=\"" + color + "\" d=\"" + path + "\"/>\n";
    }

    std::string rectangle(double x0, double x1, double y0, double y1) const
    {
        const std::string width = number(left(x1) - left(x0));
        return "M" + number(left(x0)) + "," + number(top(y1)) + "h" + width + "v" + number(top(y0) - top(y1)) + "h-" +
               width + "z";
    }

    void legend(const std::string& words, const std::string& symbol)
    {
        const double x = frame_.left + frame_.width + 30;
        const double y = frame_.top + 12 + 26 * entries_++;
        legend_ += "<g transform=\"translate(" + number(x) + "," + number(y) + ")\">" + symbol + "</g>\n" +
                   textAt(x + 18, y + 5, "start", words);
    }

    std::string body() const
    {
        return heading(frame_.left, frame_.top - 18, 17, title_) + shapes_ + "<rect x=\"" + number(frame_.left) +
               "\" y=\"" + number(frame_.top) + "\" width=\"" + number(frame_.width) + "\" height=\"" +
               number(frame_.height) + "\" fill=\"none\" stroke=\"black\"/>\n" + xTicks() + yTicks() + legend_;
    }

    /// The values of the ticks.
    static std::vector<double> ticks(const SvgAxis& axis)
    {
        std::vector<double> values;
        const double first = std::ceil(axis.low / axis.step - 1e-9) * axis.step;
        const int count = static_cast<int>(std::floor((axis.high - first) / axis.step + 1e-9));
        for (int i = 0; i <= count; ++i) {
            values.push_back(first + i * axis.step);
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
        const double bottom = frame_.top + frame_.height;
        std::string out;
        for (const double value : ticks(x_)) {
            out += "<path d=\"M" + number(left(value)) + "," + number(bottom) + " v6\" stroke=\"black\"/>\n" +
                   textAt(left(value), bottom + 21, "middle", tickText(value, x_.step));
        }
        return out + textAt(frame_.left + frame_.width / 2, bottom + 48, "middle", x_.label);
    }

    std::string yTicks() const
    {
        std::string out;
        for (const double value : ticks(y_)) {
            out += "<path d=\"M" + number(frame_.left) + "," + number(top(value)) + " h-6\" stroke=\"black\"/>\n" +
                   textAt(frame_.left - 10, top(value) + 5, "end", tickText(value, y_.step));
        }
        return out + "<g transform=\"translate(" + number(frame_.left - 56) + "," +
               number(frame_.top + frame_.height / 2) + ") rotate(-90)\">" + textAt(0, 0, "middle", y_.label) +
               "</g>\n";
    }

    std::string title_;
    SvgAxis x_;
    SvgAxis y_;
    SvgFrame frame_;
    std::string shapes_;
    std::string legend_;
    int entries_ = 0;
};

}  // namespace examples
