<?xml version="1.0"?>
<!-- The page every document view shares: the styles, the colours of the change flags (O removed,
     N added, F older state, T newer state, X unchanged) and collapsible trees (details/summary,
     open where something changed). Each document's stylesheet imports this one. -->
<xsl:stylesheet version="1.0" xmlns:xsl="http://www.w3.org/1999/XSL/Transform">
  <xsl:output method="html" encoding="ISO-8859-1" indent="yes" doctype-system="about:legacy-compat"/>

  <xsl:template name="page">
    <xsl:param name="title"/>
    <xsl:param name="body"/>
    <html>
      <head>
        <title><xsl:value-of select="$title"/></title>
        <style>
          body { font: 14px/1.4 sans-serif; margin: 1.5em; color: #222; }
          h1 { font-size: 1.3em; }
          table { border-collapse: collapse; }
          th, td { text-align: left; padding: 2px 10px; border-bottom: 1px solid #ddd; }
          details { margin-left: 1.2em; }
          summary { cursor: pointer; }
          .entry { margin-left: 2.4em; font-family: monospace; white-space: pre-wrap; }
          .flag-O { color: #b00020; text-decoration: line-through; }
          .flag-N { color: #1b7a1b; }
          .flag-F { color: #a05a00; }
          .flag-T { color: #0050b0; }
          .flag-X { color: #222; }
          .legend span { margin-right: 1.5em; }
        </style>
      </head>
      <body>
        <h1><xsl:value-of select="$title"/></h1>
        <p class="legend">
          <span class="flag-O">removed (older only)</span><span class="flag-N">added (newer only)</span>
          <span class="flag-F">changed: older</span><span class="flag-T">changed: newer</span>
        </p>
        <xsl:copy-of select="$body"/>
        <!-- Each entry notes the colour it is shown in, so that a headless browser can tell. -->
        <script>
          for (const e of document.querySelectorAll('[class*="flag-"]'))
            e.setAttribute('data-shown', getComputedStyle(e).color);
        </script>
      </body>
    </html>
  </xsl:template>

  <!-- The class of an element by its CHGFLAG child. -->
  <xsl:template name="flag-class">
    <xsl:text>flag-</xsl:text>
    <xsl:value-of select="CHGFLAG/@flag"/>
  </xsl:template>
</xsl:stylesheet>
