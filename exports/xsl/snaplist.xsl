<?xml version="1.0"?>
<!-- The snapshot list as a table. -->
<xsl:stylesheet version="1.0" xmlns:xsl="http://www.w3.org/1999/XSL/Transform">
  <xsl:import href="common.xsl"/>
  <xsl:template match="/SNAPSHOTLIST">
    <xsl:call-template name="page">
      <xsl:with-param name="title">Snapshots</xsl:with-param>
      <xsl:with-param name="body">
        <table>
          <tr><th>File</th><th>Time</th><th>Description</th></tr>
          <xsl:for-each select="SNAPSHOT">
            <tr><td><xsl:value-of select="FILE"/></td><td><xsl:value-of select="TIMESTAMP"/></td>
                <td><xsl:value-of select="DESCRIPTION"/></td></tr>
          </xsl:for-each>
        </table>
      </xsl:with-param>
    </xsl:call-template>
  </xsl:template>
</xsl:stylesheet>
