import "../node_modules/uplot/dist/uPlot.min.css";
import "../style.css";
import { App } from "./app";
import { patch } from "./views/element";
import { pageView } from "./views/shell";

const kQuietMs = 200; // between two drawings that nobody waits for

function begin(): void {
  const root = document.getElementById("app");
  if (root === null) return;
  let last = 0;
  let timer: ReturnType<typeof setTimeout> | undefined;
  let asked = false;

  const draw = (): void => {
    asked = false;
    clearTimeout(timer);
    timer = undefined;
    last = performance.now();
    app.look();
    document.body.dataset.connection = app.connection;
    patch(root, pageView(app));
  };
  const soon = (): void => {
    if (asked) return;
    asked = true;
    requestAnimationFrame(draw);
  };
  const show = (pressed: boolean): void => {
    if (pressed) soon();
    else timer ??= setTimeout(soon, Math.max(0, last + kQuietMs - performance.now()));
  };

  const scheme = location.protocol === "https:" ? "wss" : "ws";
  const app = new App(show, `${scheme}://${location.host}/mqtt`);
  window.addEventListener("hashchange", () => {
    app.navigate(location.hash);
    window.scrollTo(0, 0);
  });
  window.addEventListener("scroll", soon, { passive: true });
  window.addEventListener("resize", soon);
  draw();
  app.start();
}

begin();
