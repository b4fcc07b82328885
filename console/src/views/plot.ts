// The last hour of free spaces as a line.
import uPlot from "uplot";
import { h, type Element_ } from "./element";

export interface PlotSource {
  series(): [number[], (number | null)[]]; // minutes before now, free spaces
  colors(): { line: string; grid: string; text: string };
  onChange(listener: () => void): () => void; // returns what ends it
}

const kHeight = 150;
const kShortestMinutes = 5; // a page that was just opened has little to show yet

export function plot(source: PlotSource): Element_ {
  return h("div", {
    class: "plot",
    key: "plot",
    role: "img",
    "aria-label": "Free spaces in the last hour",
    mount: (element: HTMLElement) => draw(element, source),
  });
}

function draw(element: HTMLElement, source: PlotSource): () => void {
  const options = (): uPlot.Options => {
    const { line, grid, text } = source.colors();
    const axis = {
      stroke: text,
      grid: { stroke: grid, width: 1 },
      ticks: { stroke: grid, width: 1 },
      font: "12px system-ui",
    };
    return {
      width: Math.max(element.clientWidth, 200),
      height: kHeight,
      cursor: { show: false },
      legend: { show: false },
      scales: {
        x: { time: false, range: (_, oldest) => [Math.min(-kShortestMinutes, oldest ?? 0), 0] },
        y: { range: (_, __, most) => [0, Math.max(most * 1.1, 4)] },
      },
      series: [{}, { stroke: line, width: 2, fill: line + "22", points: { show: false } }],
      axes: [
        { ...axis, values: (_, splits) => splits.map((minutes) => (minutes === 0 ? "now" : `${minutes} min`)) },
        { ...axis, size: 44 },
      ],
    };
  };
  let look = JSON.stringify(source.colors());
  let chart = new uPlot(options(), source.series(), element);
  const refresh = (): void => {
    const now = JSON.stringify(source.colors());
    if (now === look) {
      chart.setData(source.series());
      return;
    }
    look = now;
    chart.destroy();
    chart = new uPlot(options(), source.series(), element);
  };
  const resized = new ResizeObserver(() =>
    chart.setSize({ width: Math.max(element.clientWidth, 200), height: kHeight }),
  );
  resized.observe(element);
  const end = source.onChange(refresh);
  return () => {
    end();
    resized.disconnect();
    chart.destroy();
  };
}
