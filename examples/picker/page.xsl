<?xml version="1.0" encoding="UTF-8"?>
<!-- The picked layouts as an HTML page: cards for those with examples of variants, a list of the rest. -->
<xsl:stylesheet version="1.0" xmlns:xsl="http://www.w3.org/1999/XSL/Transform">
  <xsl:output method="html" encoding="UTF-8" indent="yes" doctype-system="about:legacy-compat"/>

  <xsl:variable name="most">
    <xsl:for-each select="/page/layout">
      <xsl:sort select="@variants" data-type="number" order="descending"/>
      <xsl:if test="position() = 1"><xsl:value-of select="@variants"/></xsl:if>
    </xsl:for-each>
  </xsl:variable>

  <xsl:template match="/page">
    <html lang="en">
      <head>
        <meta name="viewport" content="width=device-width, initial-scale=1"/>
        <title>Keyboard layouts</title>
        <style>
:root {
  color-scheme: light dark;
  --back: #f6f7f9; --card: #ffffff; --text: #1c2230; --quiet: #5d6678; --line: #dfe3ea;
}
* { box-sizing: border-box; }
body {
  margin: 0 auto; padding: 1.5rem clamp(1rem, 4vw, 3rem) 3rem;
  max-width: <xsl:value-of select="@width"/>px;
  background: var(--back); color: var(--text);
  font: 1rem/1.5 system-ui, sans-serif;
}
h1 { margin: 0; font-size: clamp(1.6rem, 4vw, 2.4rem); line-height: 1.2; }
h2 { margin: 2.5rem 0 .75rem; font-size: 1.15rem; }
.lead { margin: .4rem 0 1.8rem; color: var(--quiet); }
.cards { display: grid; gap: 1rem; grid-template-columns: repeat(auto-fill, minmax(min(100%, 17rem), 1fr)); }
.card {
  --tone: var(--ink);
  display: flex; flex-direction: column; gap: .6rem; padding: 1rem 1.1rem;
  background: var(--card); border: 1px solid var(--line); border-top: 4px solid var(--tint);
  border-radius: .75rem;
}
.head { display: flex; gap: .8rem; align-items: center; }
.key {
  flex: none; min-width: 2.9rem; padding: .35rem .5rem; text-align: center;
  font: 600 1rem/1.3 ui-monospace, monospace; color: var(--tone);
  border: 1px solid var(--tint); border-bottom-width: 3px; border-radius: .5rem;
}
.title { font-weight: 600; line-height: 1.25; }
.detail, .languages { color: var(--quiet); font-size: .875rem; }
.bar { margin-top: .3rem; height: .4rem; border-radius: .2rem; background: var(--line); }
.bar span { display: block; height: 100%; border-radius: inherit; background: var(--tint); }
.count { display: flex; gap: 1rem; justify-content: space-between; color: var(--quiet); font-size: .875rem; }
ul { margin: 0; padding: 0; list-style: none; }
.variants { display: flex; flex-wrap: wrap; gap: .35rem; }
.variants li { padding: .1rem .55rem; border: 1px solid var(--line); border-radius: 1rem; font-size: .8125rem; }
.rest { columns: 15rem; column-gap: 2rem; }
.rest li {
  display: flex; gap: .6rem; padding: .3rem 0; break-inside: avoid; border-bottom: 1px solid var(--line);
}
.rest code { flex: none; min-width: 2.6rem; color: var(--ink); font-weight: 600; }
.rest small { margin-left: auto; color: var(--quiet); }
@media (prefers-color-scheme: dark) {
  :root { --back: #12151c; --card: #1b202a; --text: #e8ebf1; --quiet: #9aa4b6; --line: #2e3543; }
  .card { --tone: var(--tint); }
  .rest code { color: var(--tint); }
}
        </style>
      </head>
      <body>
        <h1>Keyboard layouts</h1>
        <p class="lead">
          <xsl:value-of select="concat(count(layout), ' layouts with ', sum(layout/@variants), ' variants')"/>
        </p>
        <div class="cards">
          <xsl:apply-templates select="layout[variant]"/>
        </div>
        <xsl:if test="layout[not(variant)]">
          <h2>More layouts</h2>
          <ul class="rest">
            <xsl:apply-templates select="layout[not(variant)]" mode="rest"/>
          </ul>
        </xsl:if>
      </body>
    </html>
  </xsl:template>

  <xsl:template match="layout">
    <section class="card" style="--tint: {@tint}; --ink: {@ink}">
      <div class="head">
        <span class="key"><xsl:value-of select="@name"/></span>
        <div>
          <div class="title"><xsl:value-of select="title"/></div>
          <xsl:if test="detail != ''">
            <div class="detail"><xsl:value-of select="detail"/></div>
          </xsl:if>
        </div>
      </div>
      <div>
        <div class="count">
          <span><xsl:value-of select="concat(@variants, ' variants')"/></span>
          <span class="languages"><xsl:value-of select="languages"/></span>
        </div>
        <div class="bar"><span style="width: {round(100 * @variants div $most)}%"/></div>
      </div>
      <ul class="variants">
        <xsl:for-each select="variant">
          <li><xsl:value-of select="."/></li>
        </xsl:for-each>
      </ul>
    </section>
  </xsl:template>

  <xsl:template match="layout" mode="rest">
    <li style="--tint: {@tint}; --ink: {@ink}">
      <code><xsl:value-of select="@name"/></code>
      <span>
        <xsl:value-of select="title"/>
        <xsl:if test="detail != ''"><xsl:value-of select="concat(' (', detail, ')')"/></xsl:if>
      </span>
      <xsl:if test="@variants &gt; 0"><small><xsl:value-of select="@variants"/></small></xsl:if>
    </li>
  </xsl:template>
</xsl:stylesheet>
