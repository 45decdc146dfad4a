/** Says what is not on the page, and why. */
function showLeftOut(model) {
  const lines = [...model.problems,
    ...model.left_out.map((line) => ["", line])];
  $("left-out").hidden = lines.length === 0;
  $("left-out-list").append(...lines.map(([path, what]) =>
    make("li", {}, make("b", {}, path), path ? ` ${what}` : what)));
}

function showScope(model) {
  const absent = model.images.filter((image) => image.block < 0 && image.entries > 0).length;
  $("scope").textContent = absent === 0 ? "The file entries of every image are on this page."
    : `The file entries of ${model.chosen ? "the images that were asked for"
      : "the newest set of each series"} are on this page; of ${plural(absent, "other image",
      "other images")}, what the manifests say.`;
}

async function main() {
  const model = modelOf(JSON.parse(decoded(await unpacked("index"))));
  show($("title"), model.server || "(no name)");
  document.title = `${seen(model.server)} \u2013 backup report`;
  show($("origin"), `Archive ${model.archive}, as of ${moment(model.made)}`);
  const entries = model.images.reduce((sum, image) => sum + image.entries, 0);
  $("summary").textContent = [plural(model.sets.length, "backup set", "backup sets"),
    plural(model.images.length, "image", "images"),
    plural(entries, "file entry", "file entries")].join(" \u00B7 ");
  $("version").textContent = `Made by quillmere-report ${model.version}.`;
  showLeftOut(model);

  $("empty").hidden = model.images.length + model.sets.length > 0;
  $("empty").replaceChildren();
  show($("empty"), "This archive holds no image and no backup set yet. Fill it with "
    + `quillmere-archive sync ${model.archive}, and make this page again.`);
  if (model.images.length === 0) {
    document.querySelector("main").setAttribute("aria-busy", "false");
    return;
  }
  showScope(model);
  const openImage = imageView(model);
  const lead = async (image) => {
    await openImage(image);
    $("image").scrollIntoView();
    $("image-heading").focus({preventScroll: true});
  };
  let newest;
  $("image").hidden = false;
  if (model.sets.length > 0) {
    for (const id of ["sets", "growth"]) $(id).hidden = false;
    newest = nightsView(model, lead);
    growthView(model);
    changesView(model);
  }
  const shown = model.shown.map((at) => model.images[at]);
  await openImage(newest?.images.find((image) => image.block >= 0) ?? shown[0] ?? model.images[0]);
}

main();
