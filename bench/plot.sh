#!/bin/bash
# plot.sh: draws the ratios of the rows on standard input as an SVG picture, on a logarithmic scale: a
# dot for the ratio, a bar for its spread, a notch for its goal.
set -euo pipefail
awk -F'|' '
    # The position of a ratio. A ratio outside the scale is drawn at its edge.
    function x(value,    place) {
        place = log(value / lowest) / log(highest / lowest)
        return left + width * (place < 0 ? 0 : place > 1 ? 1 : place)
    }
    function label(at, y, class, text) {
        gsub(/&/, "\\&amp;", text); gsub(/</, "\\&lt;", text); gsub(/`/, "", text)
        printf "  <text class=\"%s\" x=\"%.1f\" y=\"%.1f\">%s</text>\n", class, at, y, text
    }
    function line(class, x1, y1, x2, y2) {
        printf "  <path class=\"%s\" d=\"M%.1f %.1fL%.1f %.1f\"/>\n", class, x1, y1, x2, y2
    }
    BEGIN { left = 560; width = 360; step = 22; top = 40; lowest = 0.001; highest = 100 }
    $5 != "" { ++count; what[count] = $1 ", against " $2; middle[count] = $5
               low[count] = $6; high[count] = $7; goal[count] = $8 }
    END {
        bottom = top + count * step
        printf "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 %d %d\" role=\"img\">\n", left + width + 80, bottom + 30
        print "  <title>The ratios with their spread and their goals</title>"
        print "  <style>"
        print "    text { font: 12px sans-serif; fill: #1f2328 }"
        print "    .what { text-anchor: end }"
        print "    .scale { text-anchor: middle }"
        print "    .grid { stroke: #d1d9e0 }"
        print "    .one { stroke: #59636e; stroke-width: 2 }"
        print "    .spread { stroke: #0969da; stroke-width: 5; stroke-opacity: 0.4 }"
        print "    .met { fill: #1a7f37 }"
        print "    .missed { fill: #cf222e }"
        print "    .free { fill: #0969da }"
        print "    .goal { stroke: #9a6700; stroke-width: 3 }"
        print "    @media (prefers-color-scheme: dark) {"
        print "      text { fill: #e6edf3 }"
        print "      .grid { stroke: #3d444d }"
        print "      .one { stroke: #9198a1 }"
        print "      .spread { stroke: #4493f8 }"
        print "      .met { fill: #3fb950 }"
        print "      .missed { fill: #f85149 }"
        print "      .free { fill: #4493f8 }"
        print "      .goal { stroke: #d29922 }"
        print "    }"
        print "  </style>"
        for (tick = lowest; tick < highest * 1.01; tick *= 10) {
            line(tick > 0.99 && tick < 1.01 ? "one" : "grid", x(tick), top - 12, x(tick), bottom)
            label(x(tick), top - 18, "scale", sprintf("%g", tick))
        }
        for (i = 1; i <= count; ++i) {
            y = top + (i - 0.5) * step
            label(left - 14, y + 4, "what", what[i])
            line("spread", x(low[i]), y, x(high[i]), y)
            class = goal[i] == "" ? "free" : middle[i] <= goal[i] ? "met" : "missed"
            if (goal[i] != "") line("goal", x(goal[i]), y - 8, x(goal[i]), y + 8)
            printf "  <circle class=\"%s\" cx=\"%.1f\" cy=\"%.1f\" r=\"4.5\"/>\n", class, x(middle[i]), y
            label(left + width + 14, y + 4, "", middle[i])
        }
        label(left - 200, bottom + 20, "", "Left of 1 is better. Notch: the goal. Green: met. Red: missed. Blue: time or count without a ratio as goal.")
        print "</svg>"
    }'
